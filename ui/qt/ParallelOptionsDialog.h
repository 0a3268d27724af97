// The Options dialog: parallel conversion on or off and the maximum of jobs
// at once. Its rules are the model's; the dialog draws them.
#pragma once

#include <QDialog>

#include "ui/ParallelOptions.h"

class QCheckBox;
class QComboBox;
class QLabel;

namespace tarnvel::qt {

class ParallelOptionsDialog : public QDialog {
  Q_OBJECT

 public:
  ParallelOptionsDialog(const ParallelSettings& present, QWidget* parent = nullptr);

  // What OK gave.
  ParallelSettings Result() const { return model_.Confirm(); }

  QCheckBox* EnableBox() const { return enable_; }
  QComboBox* MaximumList() const { return maximum_; }
  QLabel* MaximumLabel() const { return label_; }

 private:
  void Show();

  ParallelOptionsModel model_;
  QCheckBox* enable_;
  QLabel* label_;
  QComboBox* maximum_;
};

}  // namespace tarnvel::qt
