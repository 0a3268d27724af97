#include "ui/qt/ParallelOptionsDialog.h"

#include <QCheckBox>
#include <QComboBox>
#include <QDialogButtonBox>
#include <QLabel>
#include <QPushButton>
#include <QVBoxLayout>

#include "ui/Texts.h"

namespace tarnvel::qt {
namespace {

QString Text(int id) { return QString::fromStdString(UiText(id)); }

}  // namespace

ParallelOptionsDialog::ParallelOptionsDialog(const ParallelSettings& present, QWidget* parent)
    : QDialog(parent), model_(present) {
  setWindowTitle(Text(kTextOptionsCaption));
  enable_ = new QCheckBox(Text(kTextParallelEnable));
  label_ = new QLabel(Text(kTextParallelMaximum));
  maximum_ = new QComboBox;
  for (const std::string& entry : ParallelOptionsModel::Entries()) maximum_->addItem(QString::fromStdString(entry));
  label_->setBuddy(maximum_);
  auto* buttons = new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Cancel);
  buttons->button(QDialogButtonBox::Ok)->setText(Text(kTextOk));
  buttons->button(QDialogButtonBox::Cancel)->setText(Text(kTextCancel));

  auto* layout = new QVBoxLayout(this);
  layout->addWidget(enable_);
  auto* row = new QHBoxLayout;
  row->addWidget(label_, 1);
  row->addWidget(maximum_);
  layout->addLayout(row);
  layout->addWidget(buttons);
  layout->setSizeConstraint(QLayout::SetFixedSize);

  Show();
  connect(enable_, &QCheckBox::toggled, this, [this](bool on) {
    model_.SetChecked(on);
    Show();
  });
  connect(maximum_, &QComboBox::currentIndexChanged, this, [this](int index) { model_.Select(index); });
  connect(buttons, &QDialogButtonBox::accepted, this, &QDialog::accept);
  connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
}

void ParallelOptionsDialog::Show() {
  const QSignalBlocker quiet(maximum_);
  enable_->setChecked(model_.Checked());
  maximum_->setCurrentIndex(model_.Selection());
  label_->setEnabled(model_.ListEnabled());
  maximum_->setEnabled(model_.ListEnabled());
}

}  // namespace tarnvel::qt
