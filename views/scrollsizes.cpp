#include "views/scrollsizes.h"

#include <QAbstractScrollArea>
#include <QScrollBar>
#include <QStyle>
#include <algorithm>

void SetScrollSizes(QAbstractScrollArea *view, QSize content) {
  const int bar = view->style()->pixelMetric(QStyle::PM_ScrollBarExtent, nullptr, view);
  const QSize client = view->contentsRect().size();  // bars included
  bool needH = false, needV = false;
  if (client.width() > bar && client.height() > bar) {
    needH = client.width() < content.width();
    needV = client.height() < content.height();
    if (needV && !needH) needH = client.width() - bar < content.width();
    if (needH && !needV) needV = client.height() - bar < content.height();
  }
  view->setHorizontalScrollBarPolicy(needH ? Qt::ScrollBarAlwaysOn : Qt::ScrollBarAlwaysOff);
  view->setVerticalScrollBarPolicy(needV ? Qt::ScrollBarAlwaysOn : Qt::ScrollBarAlwaysOff);
  const int width = client.width() - (needV ? bar : 0);
  const int height = client.height() - (needH ? bar : 0);
  QScrollBar *h = view->horizontalScrollBar(), *v = view->verticalScrollBar();
  h->setRange(0, needH ? content.width() - width : 0);
  v->setRange(0, needV ? content.height() - height : 0);
  // A page is the part shown, which also makes each bar's thumb as long,
  // against its groove, as the shown part against the whole.
  h->setPageStep(std::max(1, width));
  v->setPageStep(std::max(1, height));
  h->setSingleStep(std::max(1, content.width() / 100));
  v->setSingleStep(std::max(1, content.height() / 100));
}

QRect ClientRect(const QAbstractScrollArea *view) {
  const int bar = view->style()->pixelMetric(QStyle::PM_ScrollBarExtent, nullptr, view);
  QSize client = view->contentsRect().size();
  if (view->verticalScrollBarPolicy() == Qt::ScrollBarAlwaysOn) client.rwidth() -= bar;
  if (view->horizontalScrollBarPolicy() == Qt::ScrollBarAlwaysOn) client.rheight() -= bar;
  return QRect(QPoint(0, 0), client);
}
