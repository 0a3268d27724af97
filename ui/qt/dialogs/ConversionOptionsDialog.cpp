#include "ui/qt/dialogs/ConversionOptionsDialog.h"

#include <QCheckBox>
#include <QComboBox>
#include <QFormLayout>
#include <QGridLayout>
#include <QGroupBox>
#include <QGuiApplication>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QRegularExpressionValidator>
#include <QSignalBlocker>
#include <QVBoxLayout>

#include "platform/cordage/TextField.h"
#include "ui/qt/dialogs/CodecDialog.h"
#include "ui/qt/dialogs/PreviewWidget.h"

namespace tarnvel {
namespace {

constexpr int kPreviewWidth = 320, kPreviewHeight = 256;

// Reading the recording's first frame may take a moment: the wait cursor
// covers it, and the recording is closed again when it returns.
RecordingSummary ReadWithWaitCursor(const OptionsStart& start) {
  QGuiApplication::setOverrideCursor(Qt::WaitCursor);
  RecordingSummary summary =
      ReadRecordingSummary(std::string(FolderOf(start.argsPath)), start.firstFrame, start.frameCount, true);
  QGuiApplication::restoreOverrideCursor();
  return summary;
}

QLabel* Value(const std::string& text, const char* name, QWidget* parent) {
  auto* label = new QLabel(QString::fromStdString(text), parent);
  label->setObjectName(name);
  label->setTextInteractionFlags(Qt::TextSelectableByMouse);
  return label;
}

}  // namespace

ConversionOptionsDialog::ConversionOptionsDialog(const OptionsStart& start, QWidget* parent)
    : QDialog(parent), model_(start, ReadWithWaitCursor(start)) {
  setWindowTitle(tr("Raw Conversion Options"));
  setModal(true);
  auto* title = new QLabel(QString::fromStdString(model_.Title()), this);
  title->setObjectName("title");
  QFont bold = title->font();
  bold.setWeight(QFont::DemiBold);  // 600
  title->setFont(bold);

  auto* convert = new QPushButton(tr("Convert"), this);
  convert->setObjectName("convert");
  convert->setDefault(true);
  auto* cancel = new QPushButton(tr("Cancel"), this);
  cancel->setObjectName("cancel");
  connect(convert, &QPushButton::clicked, this, &ConversionOptionsDialog::accept);
  connect(cancel, &QPushButton::clicked, this, &ConversionOptionsDialog::reject);

  auto* middle = new QHBoxLayout;
  const PreviewFrame& frame = model_.Summary().preview;
  if (frame.bits != 0) {
    preview_ = new PreviewWidget(frame.pixels.data(), frame.width, frame.height, frame.bits, this);
    preview_->setFixedSize(kPreviewWidth, kPreviewHeight);
    middle->addWidget(preview_, 0, Qt::AlignTop);
  } else {
    auto* empty = new QFrame(this);  // the preview frame without a picture
    empty->setObjectName("previewFrame");
    empty->setFrameStyle(QFrame::Panel | QFrame::Sunken);
    empty->setFixedSize(kPreviewWidth, kPreviewHeight);
    middle->addWidget(empty, 0, Qt::AlignTop);
  }
  auto* right = new QVBoxLayout;
  right->addWidget(MakeSummary());
  right->addWidget(MakeOutput());
  right->addStretch();
  middle->addLayout(right);
  auto* buttons = new QHBoxLayout;
  buttons->addStretch();
  buttons->addWidget(convert);
  buttons->addWidget(cancel);
  auto* layout = new QVBoxLayout(this);
  layout->addWidget(title);
  layout->addLayout(middle);
  layout->addLayout(buttons);
  ShowFileType();
}

QWidget* ConversionOptionsDialog::MakeSummary() {
  const RecordingSummary& s = model_.Summary();
  auto* box = new QWidget(this);
  auto* form = new QFormLayout(box);
  form->setContentsMargins(0, 0, 0, 0);
  form->addRow(tr("Camera:"), Value(s.camera, "camera", box));
  form->addRow(tr("Resolution:"), Value(s.resolution, "resolution", box));
  form->addRow(tr("Frames:"), Value(s.frames, "frames", box));
  form->addRow(tr("Speed:"), Value(s.speed, "speed", box));
  return box;
}

QWidget* ConversionOptionsDialog::MakeOutput() {
  auto* group = new QGroupBox(tr("Output"), this);
  fileTypes_ = new QComboBox(group);
  fileTypes_->setObjectName("fileType");
  for (const FileTypeChoice& type : model_.FileTypes()) fileTypes_->addItem(QString::fromStdString(type.text), type.number);
  fileTypes_->setCurrentIndex(static_cast<int>(model_.FileTypeIndex()));
  codec_ = new QPushButton(tr("Codec..."), group);
  codec_->setObjectName("codec");
  depths_ = new QComboBox(group);
  depths_->setObjectName("depth");
  rateLabel_ = new QLabel(tr("Playback Rate [fps]:"), group);
  rate_ = new QLineEdit(QString::fromStdString(model_.RateField()), group);
  rate_->setObjectName("rate");
  rate_->setValidator(new QRegularExpressionValidator(QRegularExpression("[0-9]*"), rate_));
  reset_ = new QCheckBox(tr("Reset frame numbering."), group);
  reset_->setObjectName("reset");
  reset_->setChecked(model_.ResetNumbering());
  delete_ = new QCheckBox(tr("Delete raw file after conversion."), group);
  delete_->setObjectName("delete");
  delete_->setChecked(model_.DeleteRaw());

  auto* grid = new QGridLayout(group);
  grid->addWidget(new QLabel(tr("File Type:"), group), 0, 0);
  grid->addWidget(fileTypes_, 0, 1);
  grid->addWidget(codec_, 0, 2);
  grid->addWidget(new QLabel(tr("Ouput pixel depth:"), group), 1, 0);
  grid->addWidget(depths_, 1, 1);
  grid->addWidget(rateLabel_, 2, 0);
  grid->addWidget(rate_, 2, 1);
  grid->addWidget(reset_, 3, 0, 1, 3);
  grid->addWidget(delete_, 4, 0, 1, 3);

  connect(fileTypes_, &QComboBox::currentIndexChanged, this, [this](int index) {
    if (index < 0) return;
    model_.SelectFileType(static_cast<std::size_t>(index));
    ShowFileType();
  });
  connect(depths_, &QComboBox::currentIndexChanged, this, [this](int index) {
    if (index >= 0) model_.SelectDepth(static_cast<std::size_t>(index));
  });
  connect(rate_, &QLineEdit::textChanged, this, [this](const QString& text) { model_.SetRateField(text.toStdString()); });
  connect(reset_, &QCheckBox::toggled, this, [this](bool on) { model_.SetResetNumbering(on); });
  connect(delete_, &QCheckBox::toggled, this, [this](bool on) { model_.SetDeleteRaw(on); });
  connect(codec_, &QPushButton::clicked, this, &ConversionOptionsDialog::ChooseCodec);
  return group;
}

// The depth list of the selected type and the enable rules.
void ConversionOptionsDialog::ShowFileType() {
  {
    const QSignalBlocker quiet(depths_);
    depths_->clear();
    for (const DepthChoice& depth : model_.Depths()) depths_->addItem(QString::fromStdString(depth.text), depth.ItemData());
    depths_->setCurrentIndex(static_cast<int>(model_.DepthIndex()));
  }
  codec_->setEnabled(model_.CodecEnabled());
  rateLabel_->setEnabled(model_.RateEnabled());
  rate_->setEnabled(model_.RateEnabled());
}

void ConversionOptionsDialog::ChooseCodec() {
  CodecDialog dialog(model_.FileType(), model_.CodecEntryForType(), this);
  if (dialog.exec() == QDialog::Accepted) model_.TakeCodecEntry(dialog.Selected());
}

void ConversionOptionsDialog::accept() {
  overrides_ = model_.Confirm();
  QDialog::accept();
}

OptionsChooser DialogOptionsChooser(QWidget* parent) {
  return [parent](const std::string& argsPath, JobOverrides& overrides) {
    ConversionOptionsDialog dialog(ReadOptionsStart(argsPath), parent);
    if (dialog.exec() != QDialog::Accepted) return false;
    overrides = dialog.Overrides();
    return true;
  };
}

}  // namespace tarnvel
