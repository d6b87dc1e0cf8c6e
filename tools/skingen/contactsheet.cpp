#include <QDir>
#include <QPainter>

#include "artwork.h"
#include "captionfont.h"
#include "palette.h"
#include "skintable.h"

namespace skingen {
namespace {

// The sheet's width and the cells' layout, in pixels.
constexpr int kSheetWidth = 840, kCellGap = 8, kRowHeight = 50, kLabelWidth = 36;

// The buttons that are out together while the colour tools are chosen: the top bar in
// edit mode (with downloading disabled), the bottom tools and the colour tool column
// with "Sky" as the chosen tool.
struct Shown {
  int id;
  int resource;
};
constexpr Shown kEditingWithColourTools[] = {
    {1014, 270}, {1015, 247}, {1037, 301}, {1023, 348}, {1032, 256}, {1033, 265}, {1007, 227},
    {1008, 224}, {1011, 203}, {1024, 200}, {1012, 238}, {1013, 235}, {1020, 230}, {1030, 217},
    {1029, 215}, {1026, 212}, {1025, 209}, {1018, 253}, {1002, 262}, {1003, 268},
};

}  // namespace

QImage DrawContactSheet(const QString &skinDir) {
  const QDir skins(skinDir);
  const auto skin = [&skins](int resource) {
    return QImage(skins.filePath(QStringLiteral("%1.png").arg(resource)));
  };
  const QImage form(skins.filePath(QStringLiteral("form.png")));
  if (form.isNull()) return {};

  const auto controls = SkinnedControls();
  const int rows = static_cast<int>((controls.size() + 1) / 2);
  QImage sheet(kSheetWidth, kFormHeight + kCellGap + rows * kRowHeight + kCellGap,
               QImage::Format_RGB32);
  sheet.fill(QColor(kPanel));
  QPainter painter(&sheet);
  painter.drawImage(0, 0, form);
  for (const Shown &shown : kEditingWithColourTools) {
    const QImage face = skin(shown.resource);
    if (face.isNull()) return {};
    painter.drawImage(PixelPlace(*FindControl(shown.id)), face);
  }
  painter.fillRect(0, kFormHeight, kSheetWidth, kCellGap, QColor(kHairlineDark));

  painter.setFont(CaptionFont(10, QFont::Normal));
  painter.setPen(QColor(kTextDisabled));
  for (int index = 0; index < static_cast<int>(controls.size()); ++index) {
    const SkinnedControl &control = controls[index];
    int x = (index / rows) * (kSheetWidth / 2) + kCellGap;
    const int y = kFormHeight + 2 * kCellGap + (index % rows) * kRowHeight;
    painter.drawText(QPointF(x, y + 14), QString::number(control.id));
    x += kLabelWidth;
    for (const int resource : {control.up, control.down, control.focus, control.disabled}) {
      if (resource != 0) {
        const QImage face = skin(resource);
        if (face.isNull()) return {};
        painter.drawImage(x, y, face);
      }
      x += DluToPixelsX(57) + kCellGap;
    }
  }
  return sheet;
}

}  // namespace skingen
