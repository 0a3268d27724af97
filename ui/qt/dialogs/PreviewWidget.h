// The options dialog's preview: a child window with a sunken edge that
// shows one still picture fitted to its client area, on black. The picture
// is painted by PaintPreview; the window only puts the surface on screen.
// Mouse presses and moves go on to the parent, which doesn't act on them.
#pragma once

#include <QFrame>

#include "ui/PreviewImage.h"

namespace tarnvel {

class PreviewWidget : public QFrame {
  Q_OBJECT
 public:
  // `pixels` (8-bit grey or 24-bit blue-green-red rows, tightly packed) must
  // outlive the widget when their rows need no padding.
  PreviewWidget(const std::uint8_t* pixels, std::uint32_t width, std::uint32_t height, std::uint32_t bits,
                QWidget* parent);

  // The zoom in percent of the last paint.
  int ShownZoom() const { return shownZoom_; }
  const PreviewImage& Image() const { return image_; }

 protected:
  void paintEvent(QPaintEvent* event) override;

 private:
  PreviewImage image_;
  int shownZoom_ = 0;
};

}  // namespace tarnvel
