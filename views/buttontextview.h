// The one-line help pane under the work area: it shows a sentence about the
// last button the user pressed, light text on a dark strip.
#pragma once

#include <QAbstractScrollArea>
#include <QString>

class CButtonTextView : public QAbstractScrollArea {
  Q_OBJECT

 public:
  static constexpr QRgb kBackground = 0xff3d3743;  // RGB(61, 55, 67)
  static constexpr QRgb kTextColor = 0xfffcfdff;   // RGB(252, 253, 255)
  static constexpr int kFontPoints = 7;
  static constexpr int kScrollWidth = 100;
  static constexpr int kScrollHeight = 100;

  // The pane shows only what its owner tells it, so it needs no work area.
  explicit CButtonTextView(QWidget *parent = nullptr);

  // Shows string `stringId` of the string table, repainting the whole pane.
  void SetText(int stringId);
  const QString &Text() const { return text_; }

 protected:
  void paintEvent(QPaintEvent *event) override;
  void resizeEvent(QResizeEvent *event) override;

 private:
  void UpdateBars();

  QString text_;
};
