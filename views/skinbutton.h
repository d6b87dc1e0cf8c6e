// A push button that shows bitmaps instead of drawing itself: one skin each for
// up, down (pressed), focused and disabled, as the main form's buttons have. Each skin
// comes at two scales and the one that suits the screen is painted.
#ifndef KORVEL_APP_SKINBUTTON_H
#define KORVEL_APP_SKINBUTTON_H

#include <QAbstractButton>

#include "views/scaledpixmap.h"

class CSkinButton : public QAbstractButton {
  Q_OBJECT

 public:
  explicit CSkinButton(QWidget *parent = nullptr);

  // Loads the skins with these bitmap numbers from ":/skins/<n>.png" (and
  // ":/skins/<n>@2x.png" for screens of twice the density); 0 means the
  // button has no skin for that state. Returns false when the up skin is missing (the
  // button then keeps none) or when any other skin asked for cannot be loaded.
  bool LoadBitmaps(int up, int down = 0, int focus = 0, int disabled = 0);

  // Resizes the button to its up skin, keeping its place.
  void SizeToContent();

  QSize sizeHint() const override;

  // Draws a captioned button in the skins' style, for buttons that have no bitmaps.
  static void DrawCaptionButton(QPainter &painter, const QRect &rect, const QString &caption,
                                bool down, bool focused, bool enabled);

 protected:
  void paintEvent(QPaintEvent *event) override;

 private:
  const CScaledPixmap &SkinForState() const;

  CScaledPixmap up_;
  CScaledPixmap down_;
  CScaledPixmap focus_;
  CScaledPixmap disabled_;
};

#endif  // KORVEL_APP_SKINBUTTON_H
