#include "ui/qt/MainWindow.h"

#include <QApplication>
#include <QCloseEvent>
#include <QDesktopServices>
#include <QFileDialog>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QMessageBox>
#include <QPushButton>
#include <QTableView>
#include <QTimer>
#include <QVBoxLayout>
#include <algorithm>

#include "platform/cordage/Messages.h"
#include "ui/Texts.h"
#include "ui/qt/ParallelOptionsDialog.h"

namespace tarnvel::qt {
namespace {

QString Text(int id) { return QString::fromStdString(UiText(id)); }

// Widths of the columns after the first, which takes what they leave.
constexpr int kColumnWidths[6] = {0, 150, 100, 70, 70, 60};
constexpr int kOtherColumns = 450;
constexpr int kButtonWidth = 96;

QIcon IconOf(const char* name, std::initializer_list<int> sizes) {
  QIcon icon;
  for (int size : sizes) icon.addFile(QString(":/tarnvel/%1-%2.png").arg(name).arg(size), QSize(size, size));
  return icon;
}

QPushButton* Button(int textId) {
  auto* button = new QPushButton(Text(textId));
  // One width for all, unless a language's text needs more.
  button->setFixedWidth(std::max(kButtonWidth, button->sizeHint().width()));
  button->setAutoDefault(false);
  return button;
}

}  // namespace

MainWindow::MainWindow(Scheduler::JobFactory factory, ParallelSettings settings, Scheduler::Timing timing)
    : QWidget(nullptr, Qt::Window | Qt::CustomizeWindowHint | Qt::WindowTitleHint | Qt::WindowSystemMenuHint |
                           Qt::WindowMinimizeButtonHint | Qt::WindowCloseButtonHint),
      dialog_(*this, std::move(factory), settings, timing),
      model_(dialog_.List()),
      idleIcon_(IconOf("tray-idle", {16, 22, 32})),
      busyIcon_(IconOf("tray-busy", {16, 22, 32})) {
  setWindowTitle(Text(kTextWindowTitle));
  setWindowIcon(IconOf("tarnvel", {16, 32, 48, 64}));

  list_ = new QTableView;
  list_->setModel(&model_);
  list_->setSelectionBehavior(QAbstractItemView::SelectRows);
  list_->setSelectionMode(QAbstractItemView::SingleSelection);
  list_->setEditTriggers(QAbstractItemView::NoEditTriggers);
  list_->setShowGrid(true);
  list_->setSortingEnabled(false);
  list_->setWordWrap(false);
  list_->setIconSize(QSize(JobListModel::kImageSize, JobListModel::kImageSize));
  list_->verticalHeader()->hide();
  list_->verticalHeader()->setDefaultSectionSize(JobListModel::kImageSize + 4);
  list_->horizontalHeader()->setSectionsClickable(false);
  list_->horizontalHeader()->setHighlightSections(false);
  list_->setContextMenuPolicy(Qt::CustomContextMenu);
  for (int column = 1; column < 6; ++column) list_->setColumnWidth(column, kColumnWidths[column]);

  add_ = Button(kTextAdd), options_ = Button(kTextOptions), clear_ = Button(kTextClearList);
  abort_ = Button(kTextAbort), abortAll_ = Button(kTextAbortAll);
  // The list grows with the window; Add and Options keep to the left edge,
  // the other three to the right one.
  auto* buttons = new QHBoxLayout;
  buttons->addWidget(add_);
  buttons->addWidget(options_);
  buttons->addStretch(1);
  buttons->addWidget(clear_);
  buttons->addWidget(abort_);
  buttons->addWidget(abortAll_);
  auto* layout = new QVBoxLayout(this);
  layout->setContentsMargins(8, 8, 8, 8);
  layout->addWidget(list_, 1);
  layout->addLayout(buttons);
  resize(780, 360);
  ShowButtons(dialog_.Buttons());

  rowMenu_.addAction(Text(kTextOpenMovie), this, [this] {
    if (!moviePath_.empty()) openUrl(QUrl::fromLocalFile(QString::fromStdString(moviePath_)));
  });
  chooseFile = [this](const OpenFileRequest& request) { return ChooseFileWithDialog(this, request); };
  openUrl = [](const QUrl& url) { return QDesktopServices::openUrl(url); };

  connect(add_, &QPushButton::clicked, this, &MainWindow::OnAdd);
  connect(options_, &QPushButton::clicked, this, &MainWindow::OnOptions);
  connect(clear_, &QPushButton::clicked, this, [this] {
    dialog_.ClearList();
    model_.Reload();
  });
  connect(abort_, &QPushButton::clicked, this, [this] { dialog_.Abort(false); });
  connect(abortAll_, &QPushButton::clicked, this, [this] { dialog_.Abort(true); });
  connect(list_, &QWidget::customContextMenuRequested, this, &MainWindow::OnRowMenu);
  connect(&tray_, &QSystemTrayIcon::activated, this, &MainWindow::OnTrayActivated);
}

MainWindow::~MainWindow() {
  // Threads still running end without the display: their requests are
  // dropped, and every job aborts and keeps its raw files.
  if (!ended_) {
    terminating_ = true;
    queue_.Shut();
    dialog_.Abort(true);
  }
}

void MainWindow::SetUp(const JobArgument& argument, const std::string& socketPath) {
  tray_.setIcon(idleIcon_);
  tray_.setToolTip(Text(kTextTrayTip));
  tray_.show();
  if (dialog_.SetUp(argument, socketPath) == TarnvelDialog::StartAction::OpenAddDialog)
    QTimer::singleShot(100, this, &MainWindow::OnAdd);
}

void MainWindow::showEvent(QShowEvent* event) {
  QWidget::showEvent(event);
  if (sized_) return;
  // The first column takes the width the others leave; the window can't get
  // smaller than it came up.
  sized_ = true;
  list_->setColumnWidth(kFolderColumn, std::max(list_->viewport()->width() - kOtherColumns, 40));
  setMinimumSize(size());
}

void MainWindow::ShowButtons(const ButtonStates& states) {
  add_->setEnabled(states.add);
  options_->setEnabled(states.options);
  clear_->setEnabled(states.clearList);
  abort_->setEnabled(states.abort);
  abortAll_->setEnabled(states.abortAll);
}

void MainWindow::RowChanged(std::uint32_t rowIndex) { model_.RowChanged(rowIndex); }

void MainWindow::SetBusy(bool busy) {
  queue_.Run([&] {
    ShowButtons(ButtonsFor(busy));
    tray_.setIcon(busy ? busyIcon_ : idleIcon_);
  });
}

int MainWindow::ShowMessage(int number, int style, const std::string& text) {
  const bool question = (style & 0xF) == 4;
  if (terminating_) return question ? kAnswerYes : kAnswerOk;
  int answer = question ? kAnswerNo : kAnswerOk;
  queue_.Run([&] {
    QMessageBox box(this);
    box.setWindowTitle(Text(kTextWindowTitle));
    box.setText(QString::fromStdString(text));
    box.setIcon(question ? QMessageBox::Question
                : SeverityOf(number) == Severity::Error ? QMessageBox::Critical
                : SeverityOf(number) == Severity::Warning ? QMessageBox::Warning
                                                           : QMessageBox::Information);
    if (question) {
      QPushButton* yes = box.addButton(Text(kTextYes), QMessageBox::YesRole);
      box.setDefaultButton(box.addButton(Text(kTextNo), QMessageBox::NoRole));
      box.exec();
      answer = box.clickedButton() == yes ? kAnswerYes : kAnswerNo;
    } else {
      box.setDefaultButton(box.addButton(Text(kTextOk), QMessageBox::AcceptRole));
      box.exec();
    }
  });
  return answer;
}

void MainWindow::RequestClose() {
  // The suite's close arrives on the socket's thread: the window closes
  // itself later, as a close message would.
  QMetaObject::invokeMethod(this, [this] { close(); }, Qt::QueuedConnection);
}

void MainWindow::Hide() {
  queue_.Run([this] {
    // Without a notification area nothing would bring a hidden window back.
    if (tray_.isVisible() && QSystemTrayIcon::isSystemTrayAvailable())
      hide();
    else
      showMinimized();
  });
}

void MainWindow::closeEvent(QCloseEvent* event) {
  bool end = false;
  queue_.RunWhileServing([&] { end = dialog_.Close(); });
  if (!end) {
    event->ignore();
    return;
  }
  ended_ = true;
  tray_.hide();
  event->accept();
  QCoreApplication::quit();
}

void MainWindow::Terminate() {
  if (terminating_) return;
  terminating_ = true;
  dialog_.Abort(true);
  auto* poll = new QTimer(this);
  connect(poll, &QTimer::timeout, this, [this] {
    if (!dialog_.Jobs().HasPendingJobs() && !dialog_.Jobs().Busy()) close();
  });
  poll->start(50);
}

void MainWindow::OnAdd() {
  if (auto path = chooseFile(TarnvelDialog::AddFileRequest())) dialog_.Add(*path);
}

void MainWindow::OnOptions() {
  ParallelOptionsDialog options(dialog_.Jobs().Parallel(), this);
  if (options.exec() == QDialog::Accepted) dialog_.ConfirmOptions(options.Result());
}

void MainWindow::OnRowMenu(const QPoint& position) {
  const QModelIndex index = list_->indexAt(position);
  if (!index.isValid()) return;
  moviePath_ = dialog_.MovieOfRow(static_cast<std::uint32_t>(index.row()));
  if (!moviePath_.empty()) rowMenu_.popup(list_->viewport()->mapToGlobal(position));
}

void MainWindow::OnTrayActivated(QSystemTrayIcon::ActivationReason reason) {
  if (reason != QSystemTrayIcon::Trigger) return;  // no menu on the icon
  if (isMinimized())
    showNormal();
  else
    show();
  raise();
  activateWindow();
}

std::optional<std::string> MainWindow::ChooseFileWithDialog(QWidget* parent, const OpenFileRequest& request) {
  QFileDialog dialog(parent, QString::fromStdString(request.title), QString::fromStdString(request.folder));
  QStringList filters;
  for (const std::string& filter : request.filters) filters << QString::fromStdString(filter);
  dialog.setNameFilters(filters);
  dialog.setFileMode(QFileDialog::ExistingFile);
  dialog.setAcceptMode(QFileDialog::AcceptOpen);
  dialog.setDefaultSuffix(QString::fromStdString(request.defaultSuffix));
  dialog.selectFile(QString::fromStdString(request.defaultName));
  if (dialog.exec() != QDialog::Accepted || dialog.selectedFiles().isEmpty()) return std::nullopt;
  return dialog.selectedFiles().front().toStdString();
}

}  // namespace tarnvel::qt
