#include "ui/qt/dialogs/PreviewWidget.h"

#include <QImage>
#include <QPainter>
#include <vector>

namespace tarnvel {

PreviewWidget::PreviewWidget(const std::uint8_t* pixels, std::uint32_t width, std::uint32_t height, std::uint32_t bits,
                             QWidget* parent)
    : QFrame(parent) {
  setObjectName("preview");
  setWindowTitle("ImageWnd");
  setFrameStyle(QFrame::Panel | QFrame::Sunken);
  setLineWidth(2);
  setCursor(Qt::ArrowCursor);
  setAttribute(Qt::WA_OpaquePaintEvent);
  image_.SetImage(pixels, width, height, bits);
}

void PreviewWidget::paintEvent(QPaintEvent* event) {
  QFrame::paintEvent(event);
  const QRect client = contentsRect();
  if (client.isEmpty()) return;
  const auto width = static_cast<std::size_t>(client.width());
  std::vector<std::uint32_t> surface(width * static_cast<std::size_t>(client.height()));
  shownZoom_ = PaintPreview(image_, client.width(), client.height(), surface.data(), width).shownZoom;
  const QImage picture(reinterpret_cast<const uchar*>(surface.data()), client.width(), client.height(),
                       static_cast<qsizetype>(width * 4), QImage::Format_RGB32);
  QPainter painter(this);
  painter.drawImage(client.topLeft(), picture);
}

}  // namespace tarnvel
