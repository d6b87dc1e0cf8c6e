// The help pane. It scrolls like any other view over a 100 x 100 area, but it
// is only ten pixels high: a view with no room for a scroll bar shows none and
// does not scroll, so in the main window the sentence always starts at the
// pane's top-left corner.
#include "views/buttontextview.h"

#include <QPainter>
#include <QScrollBar>
#include <QStyle>

#include "photo/strings.h"
#include "views/scrollsizes.h"

CButtonTextView::CButtonTextView(QWidget *parent) : QAbstractScrollArea(parent) {
  setFrameShape(QFrame::NoFrame);
  setFocusPolicy(Qt::NoFocus);
  viewport()->setAutoFillBackground(false);
  UpdateBars();
}

void CButtonTextView::SetText(int stringId) {
  text_ = LoadKorvelString(stringId);
  viewport()->update();
}

void CButtonTextView::resizeEvent(QResizeEvent *event) {
  QAbstractScrollArea::resizeEvent(event);
  UpdateBars();
}

void CButtonTextView::UpdateBars() {
  SetScrollSizes(this, QSize(kScrollWidth, kScrollHeight));
}

void CButtonTextView::paintEvent(QPaintEvent *) {
  QPainter painter(viewport());
  painter.fillRect(viewport()->rect(), QColor::fromRgb(kBackground));
  painter.translate(-horizontalScrollBar()->value(), -verticalScrollBar()->value());
  QFont font(QStringLiteral("Arial"));
  font.setPointSize(kFontPoints);
  painter.setFont(font);
  painter.setPen(QColor::fromRgb(kTextColor));
  // The text's cell, not its baseline, sits at the corner.
  painter.drawText(QPoint(0, painter.fontMetrics().ascent()), text_);
}
