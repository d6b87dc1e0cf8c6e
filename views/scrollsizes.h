// Scroll bars the way a scrolling view decides them: from the whole client
// area (bars included), a bar where the content is larger, one bar possibly
// making the other needed by taking room; a page of the part shown (so that
// each bar's thumb shows how much of the whole is visible) and a line of a
// hundredth of the content. A view no larger than a scroll bar
// in either direction gets neither bar and does not scroll.
#pragma once

#include <QRect>
#include <QSize>

class QAbstractScrollArea;

void SetScrollSizes(QAbstractScrollArea *view, QSize content);

// The client rectangle (the area inside the frame less the scroll bars that
// show), known even before the view is first shown and laid out.
QRect ClientRect(const QAbstractScrollArea *view);
