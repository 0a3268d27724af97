// "Raw Conversion Options": the modal dialog of the Add flow for one job
// file. It reads the recording (camera, size, frames, speed and the first
// frame as a preview) and closes it again before it shows, then lets the
// user choose file type, depth, playback rate, compressor, numbering and
// deletion of the raw files. It shows a ConversionOptionsModel; Convert
// gives the model's JobOverrides.
#pragma once

#include <QDialog>

#include "ui/AddFile.h"
#include "ui/ConversionOptions.h"

class QCheckBox;
class QComboBox;
class QLabel;
class QLineEdit;
class QPushButton;

namespace tarnvel {

class PreviewWidget;

class ConversionOptionsDialog : public QDialog {
  Q_OBJECT
 public:
  ConversionOptionsDialog(const OptionsStart& start, QWidget* parent = nullptr);

  // The choices of Convert; meaningful after the dialog was accepted.
  const JobOverrides& Overrides() const { return overrides_; }
  const ConversionOptionsModel& Model() const { return model_; }
  // Null when the recording gave no picture.
  PreviewWidget* Preview() const { return preview_; }

  void accept() override;

 private:
  QWidget* MakeSummary();
  QWidget* MakeOutput();
  void ShowFileType();
  void ChooseCodec();

  ConversionOptionsModel model_;
  JobOverrides overrides_;
  PreviewWidget* preview_ = nullptr;
  QComboBox* fileTypes_ = nullptr;
  QPushButton* codec_ = nullptr;
  QComboBox* depths_ = nullptr;
  QLabel* rateLabel_ = nullptr;
  QLineEdit* rate_ = nullptr;
  QCheckBox* reset_ = nullptr;
  QCheckBox* delete_ = nullptr;
};

// The Add flow's chooser: the dialog over `parent`, started from the job
// file's values; Convert fills the overrides.
OptionsChooser DialogOptionsChooser(QWidget* parent);

}  // namespace tarnvel
