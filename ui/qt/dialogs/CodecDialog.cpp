#include "ui/qt/dialogs/CodecDialog.h"

#include <QComboBox>
#include <QGridLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QSignalBlocker>
#include <QSlider>
#include <QVBoxLayout>
#include <cstdlib>

namespace tarnvel {
namespace {

QLabel* Mark(const char* text, Qt::Alignment alignment, QWidget* parent) {
  auto* label = new QLabel(text, parent);
  label->setAlignment(alignment);
  return label;
}

}  // namespace

CodecDialog::CodecDialog(int fileType, const CodecEntry& selected, QWidget* parent)
    : QDialog(parent), model_(fileType, selected) {
  setWindowTitle(tr("Video Compression"));
  setModal(true);
  compressors_ = new QComboBox(this);
  compressors_->setObjectName("compressor");
  for (const std::string& name : model_.Names()) compressors_->addItem(QString::fromStdString(name));
  compressors_->setCurrentIndex(model_.Index());
  compressors_->setEnabled(model_.ListEnabled());

  qualityLabel_ = new QLabel(tr("Compression quality:"), this);
  readout_ = new QLabel(this);
  readout_->setObjectName("quality");
  slider_ = new QSlider(Qt::Horizontal, this);
  slider_->setObjectName("slider");
  slider_->setRange(0, CodecChoiceModel::kSliderMaximum);
  slider_->setTickInterval(CodecChoiceModel::kTickEvery);
  slider_->setTickPosition(QSlider::TicksBelow);
  slider_->setSingleStep(CodecChoiceModel::kLineStep);
  slider_->setPageStep(std::abs(CodecChoiceModel::kPageStep));
  configure_ = new QPushButton(tr("Configure..."), this);
  configure_->setObjectName("configure");
  ok_ = new QPushButton(tr("OK"), this);
  ok_->setObjectName("ok");
  ok_->setDefault(true);
  ok_->setEnabled(model_.ConfirmEnabled());
  auto* cancel = new QPushButton(tr("Cancel"), this);
  cancel->setObjectName("cancel");

  auto* grid = new QGridLayout;
  grid->addWidget(new QLabel(tr("Compressor:"), this), 0, 0);
  grid->addWidget(compressors_, 0, 1, 1, 3);
  grid->addWidget(qualityLabel_, 1, 0);
  grid->addWidget(readout_, 1, 1);
  grid->addWidget(slider_, 2, 0, 1, 4);
  grid->addWidget(Mark("0", Qt::AlignLeft, this), 3, 0);
  grid->addWidget(Mark("50", Qt::AlignHCenter, this), 3, 1, 1, 2);
  grid->addWidget(Mark("100", Qt::AlignRight, this), 3, 3);
  auto* buttons = new QHBoxLayout;
  buttons->addWidget(configure_);
  buttons->addStretch();
  buttons->addWidget(ok_);
  buttons->addWidget(cancel);
  auto* layout = new QVBoxLayout(this);
  layout->addLayout(grid);
  layout->addLayout(buttons);
  setMinimumWidth(420);

  connect(compressors_, &QComboBox::currentIndexChanged, this, [this](int index) {
    model_.Select(index);
    Show();
  });
  connect(slider_, &QSlider::valueChanged, this, &CodecDialog::SliderChanged);
  connect(slider_, &QSlider::sliderReleased, this, [this] { SliderChanged(slider_->value()); });
  connect(slider_, &QSlider::actionTriggered, this, &CodecDialog::PageStep);
  connect(configure_, &QPushButton::clicked, this, [this] {
    model_.Configure(this);
    Show();
  });
  connect(ok_, &QPushButton::clicked, this, &CodecDialog::accept);
  connect(cancel, &QPushButton::clicked, this, &CodecDialog::reject);
  Show();
}

void CodecDialog::Show() {
  const QSignalBlocker quiet(slider_);
  slider_->setValue(model_.SliderPosition());
  slider_->setEnabled(model_.SliderEnabled());
  readout_->setEnabled(model_.SliderEnabled());
  qualityLabel_->setEnabled(model_.SliderEnabled());
  readout_->setText(QString::fromStdString(model_.Readout()));
  configure_->setEnabled(model_.ConfigureEnabled());
}

// The read-out follows every step; the quality is taken when the movement
// ends: at the release of a drag, at once for a key or a click.
void CodecDialog::SliderChanged(int position) {
  if (slider_->isSliderDown())
    model_.SliderMoving(position);
  else
    model_.SliderMoved(position);
  readout_->setText(QString::fromStdString(model_.Readout()));
}

// The page step is negative: a page moves the slider against the key or
// the click. The value has not changed yet when this runs.
void CodecDialog::PageStep(int action) {
  if (action != QAbstractSlider::SliderPageStepAdd && action != QAbstractSlider::SliderPageStepSub) return;
  const int step = action == QAbstractSlider::SliderPageStepAdd ? CodecChoiceModel::kPageStep : -CodecChoiceModel::kPageStep;
  slider_->setSliderPosition(slider_->value() + step);
}

void CodecDialog::accept() {
  if (!model_.ConfirmEnabled()) return;
  model_.Confirm();
  QDialog::accept();
}

}  // namespace tarnvel
