// "Video Compression": the compressors that the image library lists for one
// file type, with the quality slider where the chosen one has a quality.
// It shows a CodecChoiceModel; OK hands back the chosen compressor record.
#pragma once

#include <QDialog>

#include "ui/CodecChoice.h"

class QComboBox;
class QLabel;
class QPushButton;
class QSlider;

namespace tarnvel {

class CodecDialog : public QDialog {
  Q_OBJECT
 public:
  CodecDialog(int fileType, const CodecEntry& selected, QWidget* parent = nullptr);

  // After OK: the chosen compressor; after Cancel: the one that came in.
  const CodecEntry& Selected() const { return model_.Selected(); }

  void accept() override;

 private:
  void Show();
  void SliderChanged(int position);
  void PageStep(int action);

  CodecChoiceModel model_;
  QComboBox* compressors_;
  QLabel* qualityLabel_;
  QLabel* readout_;
  QSlider* slider_;
  QPushButton* configure_;
  QPushButton* ok_;
};

}  // namespace tarnvel
