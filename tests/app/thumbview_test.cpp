// The thumbnail view as the user sees and uses it: fitted pictures, captions
// and frames read back from the rendered view, the scroll height rule, and
// what plain, Ctrl, double and right clicks and the Delete key do; photos
// that equal their files shown from thumbnails made off the window's thread,
// the rows on screen first.
#include <gtest/gtest.h>

#include <QAction>
#include <QApplication>
#include <QFileInfo>
#include <QImage>
#include <QMenu>
#include <QPainter>
#include <QScrollBar>
#include <QSignalSpy>
#include <QStyle>
#include <QTemporaryDir>
#include <QTest>
#include <QWheelEvent>
#include <functional>
#include <optional>

#include "photo/cellpicture.h"
#include "photo/document.h"
#include "photo/photofiles.h"
#include "raster/ras.h"
#include "tests/app/photos.h"
#include "tests/photo/patterned.h"
#include "views/scrollsizes.h"
#include "views/thumbview.h"

namespace {

constexpr QRgb kGrey = qRgb(220, 220, 220), kBlack = qRgb(0, 0, 0), kRed = qRgb(255, 0, 0);
constexpr QRgb kOrange = qRgb(200, 120, 40), kBlue = qRgb(30, 60, 210), kGreen = qRgb(40, 180, 70);
using Indices = std::vector<uint32_t>;

// Counts the events of one type that reach a widget.
class EventCounter : public QObject {
 public:
  EventCounter(QObject *target, QEvent::Type type, int *count) : type_(type), count_(count) {
    target->installEventFilter(this);
  }
  bool eventFilter(QObject *, QEvent *event) override {
    if (event->type() == type_) ++*count_;
    return false;
  }

 private:
  QEvent::Type type_;
  int *count_;
};

class Thumbs : public testing::Test {
 protected:
  void SetUp() override {
    view.setGeometry(0, 0, 645, 453);
    view.OnInitialUpdate();
    view.show();
  }
  void TearDown() override { QTest::mouseRelease(port, Qt::LeftButton); }

  void Add(int count, int width = 640, int height = 480, QRgb colour = kOrange,
           const QString &path = "/photos/p.jpg") {
    for (int i = 0; i < count; ++i)
      doc.AddImage(MakePhoto(width, height, colour), 0, path);
  }
  // The first paint after the work area changes sets the scroll height, which
  // can bring or take the scroll bar, so the picture is that of the next paint.
  QImage Shot() {
    port->grab();
    QApplication::processEvents();
    return port->grab().toImage().convertToFormat(QImage::Format_RGB32);
  }
  static void Expect(const QImage &shot, std::initializer_list<std::tuple<int, int, QRgb>> spots) {
    for (const auto &[x, y, colour] : spots)
      EXPECT_EQ(shot.pixel(x, y) | 0xff000000u, colour) << x << "," << y;
  }
  void Click(QPoint at, Qt::KeyboardModifiers keys = Qt::NoModifier) {
    QTest::mouseClick(port, Qt::LeftButton, keys, at);
  }
  QPoint CentreOf(int index) const { return view.CellRects().at(index).center(); }

  CKorvelAppDoc doc;
  CThumbView view{&doc};
  QWidget *port = view.viewport();
};

TEST_F(Thumbs, CellsFollowTheGridAndPicturesAreFittedAndCentred) {
  Add(1, 640, 480, kOrange);  // cell (20, 20): 100 x 75, rows 33-106
  Add(1, 480, 640, kBlue);    // cell (140, 20): columns 153-226
  Add(1, 50, 30, kGreen);     // cell (260, 20): the whole cell, frame included
  Add(1, 101, 50, kBlue);     // cell (380, 20): 100 x 49 loses a row: 46-93
  Add(1, 100, 100, kOrange);  // cell (500, 20): the whole cell
  Add(2);
  Expect(Shot(), {{70, 20, kBlack},   {70, 32, kGrey},   {70, 33, kOrange},  {70, 106, kOrange},
                  {70, 107, kGrey},   {70, 119, kBlack}, {20, 70, kOrange},  {119, 70, kOrange},
                  {20, 25, kBlack},   {152, 70, kGrey},  {153, 70, kBlue},   {226, 70, kBlue},
                  {227, 70, kGrey},   {190, 20, kBlue},  {190, 119, kBlue},  {260, 20, kGreen},
                  {359, 119, kGreen}, {360, 70, kGrey},  {430, 45, kGrey},   {430, 46, kBlue},
                  {430, 93, kBlue},   {430, 94, kGrey},  {500, 20, kOrange}, {599, 119, kOrange},
                  {600, 70, kGrey}});
  ASSERT_EQ(view.CellRects().size(), 7);
  EXPECT_EQ(view.CellRects()[0], QRect(20, 20, 100, 100));
  EXPECT_EQ(view.CellRects()[4], QRect(500, 20, 100, 100));
  EXPECT_EQ(view.CellRects()[6], QRect(140, 140, 100, 100));
  doc.Remove(6);
  Shot();
  EXPECT_EQ(view.CellRects().size(), 6);  // rebuilt on every paint
}

// Nobody tells the view to repaint: it hears every change to the work area
// and paints again, which rebuilds its cells.
TEST_F(Thumbs, RepaintsItselfWhenTheWorkAreaChanges) {
  ASSERT_TRUE(QTest::qWaitForWindowExposed(&view));
  int paints = 0;
  EventCounter counter(port, QEvent::Paint, &paints);
  const auto paintedAfter = [&](const std::function<void()> &change) {
    QApplication::processEvents();
    paints = 0;
    change();
    QApplication::processEvents();
    return paints > 0;
  };
  EXPECT_TRUE(paintedAfter([&] { Add(6); }));
  EXPECT_EQ(view.CellRects().size(), 6);  // the grid has its second row
  EXPECT_TRUE(paintedAfter([&] { doc.SetCurrentIndex(3); }));
  EXPECT_TRUE(paintedAfter([&] { doc.SetSelection({1, 2}); }));
  EXPECT_TRUE(paintedAfter([&] { doc.ReplaceImage(0, doc.ImageAt(1), 1, "/photos/q.jpg"); }));
  EXPECT_TRUE(paintedAfter([&] { doc.Remove(5); }));
  EXPECT_EQ(view.CellRects().size(), 5);
  EXPECT_FALSE(paintedAfter([&] { doc.SetEditMode(1); }));  // nothing of it shows here
  EXPECT_FALSE(paintedAfter([] {}));
}

TEST_F(Thumbs, ContentHeightDecidesScrolling) {
  QScrollBar *bar = view.verticalScrollBar();
  Add(10);                              // 2 rows: 260, below 454
  Expect(Shot(), {{640, 450, kGrey}});  // the whole client rectangle is background
  EXPECT_EQ(bar->maximum(), 0);
  EXPECT_FALSE(bar->isVisible());
  Add(10);  // 4 rows: 500
  Shot();
  EXPECT_EQ(bar->maximum(), 500 - 453);
  EXPECT_TRUE(bar->isVisible());
  EXPECT_FALSE(view.horizontalScrollBar()->isVisible());
  EXPECT_EQ(bar->pageStep(), 453);  // the part shown: the thumb is 453/500 of the groove
  bar->setValue(bar->maximum());    // row 3 (content 380) now starts at 333
  Expect(Shot(), {{70, 333, kBlack}, {70, 353, kOrange}, {10, 452, kGrey}});
  for (int i = 19; i >= 10; --i)
    doc.Remove(i);
  Expect(Shot(), {{70, 20, kBlack}});  // back at the top, without the bar
  EXPECT_EQ(bar->maximum(), 0);
  EXPECT_FALSE(bar->isVisible());
}

// A wheel notch moves the platform's wheel step of lines, three of which
// make one thumbnail row; the part shown is a page, in the editing view's
// bars too.
TEST_F(Thumbs, WheelNotchesAndPages) {
  Add(30);  // 6 rows: 740, of which 453 show
  Shot();
  QScrollBar *bar = view.verticalScrollBar();
  ASSERT_EQ(bar->maximum(), 740 - 453);
  const int lines = QApplication::wheelScrollLines();
  const auto notch = [&](int notches) {
    QWheelEvent wheel(QPointF(70, 70), port->mapToGlobal(QPointF(70, 70)), QPoint(),
                      QPoint(0, -120 * notches), Qt::NoButton, Qt::NoModifier, Qt::NoScrollPhase,
                      false);
    QApplication::sendEvent(port, &wheel);
    return bar->value();
  };
  const std::tuple<int, int, int> steps[] = {{3, 1, 120},  {3, 1, 240}, {1, 1, 280},
                                             {1, -2, 200}, {3, 2, 287}, {3, -3, 0}};
  for (const auto &[linesPerNotch, notches, value] : steps) {
    QApplication::setWheelScrollLines(linesPerNotch);
    EXPECT_EQ(notch(notches), value) << linesPerNotch << " lines x " << notches;
  }
  QApplication::setWheelScrollLines(lines);
  EXPECT_EQ(bar->pageStep(), 453);

  QAbstractScrollArea area;  // 300 x 200 inside its frame, showing a 1000 x 800 picture
  area.setFrameShape(QFrame::NoFrame);
  area.resize(300, 200);
  SetScrollSizes(&area, QSize(1000, 800));
  const int extent = area.style()->pixelMetric(QStyle::PM_ScrollBarExtent, nullptr, &area);
  EXPECT_EQ(area.horizontalScrollBar()->pageStep(), 300 - extent);
  EXPECT_EQ(area.verticalScrollBar()->pageStep(), 200 - extent);
  EXPECT_EQ(area.verticalScrollBar()->maximum(), 800 - (200 - extent));
}

TEST_F(Thumbs, CaptionsShowFileNamesCentredUnderTheirCells) {
  for (const char *name :
       {"/photos/sunset.jpg", "", "C:\\My Zibs\\a_file_name_much_wider_than_its_cell_Zib001.jpg"})
    Add(1, 640, 480, kOrange, name);
  const QImage shot = Shot();
  auto ink = [&](int left, int right) {  // dark pixels in the caption rows 122-139
    QList<int> xs;
    for (int y = 122; y < 140; ++y)
      for (int x = left; x < right; ++x)
        if (qGray(shot.pixel(x, y)) < 128) xs.append(x);
    return xs;
  };
  const QList<int> named = ink(20, 120);
  ASSERT_GT(named.size(), 10);
  const auto [left, right] = std::minmax_element(named.begin(), named.end());
  EXPECT_NEAR((*left + *right) / 2.0, 69.5, 3.0);  // centred on the cell
  EXPECT_GT(ink(260, 360).size(), 10);
  // No name, no caption; a name wider than the strip is cut at the strip's ends.
  for (const auto &[from, to] : {std::pair(140, 240), {0, 20}, {241, 260}, {360, 380}})
    EXPECT_TRUE(ink(from, to).isEmpty()) << from;
  for (int x = 0; x < 645; x += 3)
    Expect(shot, {{x, 120, kGrey}, {x, 121, kGrey}, {x, 140, kGrey}});
}

TEST_F(Thumbs, RedFramesMarkTheCurrentEntryOrTheSelection) {
  Add(4);
  Add(1, 50, 30, kGreen);  // covers its own black frame
  auto tops = [&] {
    const QImage shot = Shot();
    std::vector<QRgb> colours;
    for (const QRect &cell : view.CellRects())
      colours.push_back(shot.pixel(cell.center().x(), cell.top()) | 0xff000000u);
    return colours;
  };
  EXPECT_EQ(tops(), (std::vector<QRgb>{kBlack, kBlack, kBlack, kBlack, kGreen}));
  doc.SetCurrentIndex(2);
  EXPECT_EQ(tops(), (std::vector<QRgb>{kBlack, kBlack, kRed, kBlack, kGreen}));
  // With a selection the current entry is not marked for itself; the red
  // frame is drawn over a picture that covers the cell's edge.
  doc.SetSelection({0, 4, 0});
  EXPECT_EQ(tops(), (std::vector<QRgb>{kRed, kBlack, kBlack, kBlack, kRed}));
  doc.SetSelection({9});  // no longer in the work area
  EXPECT_EQ(tops(), (std::vector<QRgb>{kBlack, kBlack, kBlack, kBlack, kGreen}));
}

TEST_F(Thumbs, LeftClicksAndTheDeleteKey) {
  Add(6);
  Shot();
  view.activateWindow();
  ASSERT_TRUE(QTest::qWaitForWindowActive(&view));
  doc.SetCurrentIndex(-1);
  doc.SetSelection({});
  const Qt::KeyboardModifiers none, ctrl = Qt::ControlModifier;
  const std::tuple<QPoint, Qt::KeyboardModifiers, int, Indices> steps[] = {
      {CentreOf(0), ctrl, 0, {0}},  // nothing was current
      {{10, 10}, none, 0, {0}},     // background clicks change nothing
      {{130, 70}, none, 0, {0}},
      {{70, 125}, ctrl, 0, {0}},
      {CentreOf(1), none, 1, {}},
      {CentreOf(3), ctrl, 3, {1, 3}},  // the photo that was current comes first
      {CentreOf(3), ctrl, 3, {1, 3, 3}},
      {CentreOf(2), ctrl | Qt::ShiftModifier, 2, {}},    // a plain click
      {CentreOf(4), ctrl | Qt::AltModifier, 4, {2, 4}},  // Alt is no key flag
  };
  for (const auto &[at, keys, current, selection] : steps) {
    SCOPED_TRACE(testing::Message() << at.x() << "," << at.y() << " keys " << keys.toInt());
    Click(at, keys);
    EXPECT_EQ(doc.CurrentIndex(), current);
    EXPECT_EQ(doc.Selection(), selection);
  }
  EXPECT_TRUE(view.hasFocus());
  QSignalSpy removals(&view, &CThumbView::removePhotoRequested);
  QTest::keyClick(&view, Qt::Key_Backspace);
  QTest::keyClick(&view, Qt::Key_Delete);
  EXPECT_EQ(removals.size(), 1);
  EXPECT_EQ(doc.Count(), 6);  // the view only asks

  // With the right button also held, Ctrl-click is a plain click.
  view.SetMenuRunner([](QMenu *, const QPoint &) { return nullptr; });
  QTest::mousePress(port, Qt::RightButton, Qt::NoModifier, QPoint(10, 10));
  Click(CentreOf(2), ctrl);
  QTest::mouseRelease(port, Qt::RightButton, Qt::NoModifier, QPoint(10, 10));
  EXPECT_TRUE(doc.Selection().empty());

  CThumbView unpainted(&doc);  // before its first paint it has no cells
  unpainted.setGeometry(0, 0, 645, 453);
  QTest::mouseClick(unpainted.viewport(), Qt::LeftButton, Qt::NoModifier, QPoint(70, 70));
  EXPECT_EQ(doc.CurrentIndex(), 2);
}

TEST_F(Thumbs, ScrolledRightAndDoubleClicks) {
  Add(20);
  Shot();
  view.verticalScrollBar()->setValue(47);
  Shot();
  const QPoint spot(70, 100);  // row 1 with the scroll offset, row 0 without
  Click(spot);
  EXPECT_EQ(doc.CurrentIndex(), 5);

  QStringList items;
  QPoint shownAt;
  view.SetMenuRunner([&](QMenu *menu, const QPoint &at) -> QAction * {
    for (QAction *action : menu->actions())
      items << QString("%1 %2")
                   .arg(action->isSeparator() ? "-" : action->text())
                   .arg(action->data().toInt());
    shownAt = at;
    return menu->actions().at(5);
  });
  QSignalSpy commands(&view, &CThumbView::commandRequested);
  doc.SetSelection({7, 8});
  QTest::mouseClick(port, Qt::RightButton, {}, spot);
  EXPECT_EQ(doc.CurrentIndex(), 0);
  EXPECT_EQ(doc.Selection(), (Indices{7, 8}));
  EXPECT_EQ(items, (QStringList{"&Edit Image 32778", "&Delete Image 32772", "&Save Image 32776",
                                "- 0", "&Rotate Image 32773", "&Crop Image 32774",
                                "Co&lor Correction 32779", "Re&move Red Eye 32775"}));
  EXPECT_EQ(shownAt, port->mapToGlobal(spot));
  ASSERT_EQ(commands.size(), 1);
  EXPECT_EQ(commands[0][0].toInt(), 32774);

  items.clear();
  QTest::mouseClick(port, Qt::RightButton, {}, {70, 130});  // unscrolled, between rows
  EXPECT_TRUE(items.isEmpty());
  EXPECT_EQ(doc.CurrentIndex(), 0);
  view.SetMenuRunner([&](QMenu *, const QPoint &) { return items << "shown", nullptr; });
  QTest::mouseClick(port, Qt::RightButton, {}, {190, 70});  // closed unchosen
  EXPECT_EQ(doc.CurrentIndex(), 1);
  EXPECT_EQ(commands.size(), 1);

  QSignalSpy edits(&view, &CThumbView::editPhotoRequested);
  QTest::mouseDClick(port, Qt::LeftButton, {}, {10, 10});
  EXPECT_EQ(edits.size(), 0);
  EXPECT_EQ(doc.EditMode(), 0);
  QTest::mouseDClick(port, Qt::LeftButton, {}, spot);  // with the offset
  EXPECT_EQ(doc.CurrentIndex(), 5);
  EXPECT_EQ(doc.EditMode(), 1);
  EXPECT_EQ(doc.Selection(), (Indices{7, 8}));  // the form checks it
  EXPECT_EQ(edits.size(), 1);
  QTest::mouseDClick(port, Qt::RightButton, {}, {190, 70});  // no menu, no editing
  QTest::mouseRelease(port, Qt::RightButton, {}, {190, 70});
  EXPECT_EQ(items.size(), 1);
  EXPECT_EQ(edits.size(), 1);
}

// Photos on disk, shown from their thumbnails. The tests that need to see
// what is drawn before a thumbnail arrives hold the thumbnailer back the way
// the program does: the editor is open.
class FileThumbs : public Thumbs {
 protected:
  QString Write(const QString &name, int width, int height, QRgb colour) {
    const QString path = dir.filePath(name);
    EXPECT_TRUE(SavePicture(RasFormatBmp, path, CDib(MakePhoto(width, height, colour))));
    return path;
  }
  bool AllAnswered() {
    return QTest::qWaitFor([&] { return view.Thumbnails().Outstanding() == 0; }, 10000);
  }
  std::optional<int> Rank(int index) { return view.Thumbnails().Priority(doc.PathAt(index)); }

  QTemporaryDir dir;
};

constexpr QRgb kFrameGrey = CThumbView::kPlaceholder;

TEST_F(FileThumbs, PlaceholderThenThumbnailWithoutDecodingOnThisThread) {
  const QString blue = Write("blue.bmp", 640, 480, kBlue);
  doc.SetEditMode(1);
  doc.AddPath(blue);
  // Nothing is made yet: the cell holds a frame inside its own.
  Expect(Shot(), {{70, 20, kBlack},
                  {70, 30, kFrameGrey},
                  {30, 70, kFrameGrey},
                  {109, 70, kFrameGrey},
                  {70, 70, kGrey},
                  {70, 33, kGrey}});
  EXPECT_EQ(view.Thumbnails().Outstanding(), 1);
  EXPECT_EQ(Rank(0), 1);
  QSignalSpy ready(&view.Thumbnails(), &Thumbnailer::thumbnailReady);
  doc.SetEditMode(0);
  ASSERT_TRUE(AllAnswered());
  ASSERT_EQ(ready.size(), 1);
  EXPECT_EQ(ready[0][0].toString(), blue);
  // Fitted and centred as a picture in memory would be: 100 x 75 in rows 33-106.
  Expect(Shot(), {{70, 32, kGrey},
                  {70, 33, kBlue},
                  {70, 106, kBlue},
                  {70, 107, kGrey},
                  {20, 70, kBlue},
                  {119, 70, kBlue},
                  {70, 70, kBlue}});
  // The photo itself was never read: the work area holds no pixels at all.
  EXPECT_FALSE(doc.Pixels().Resident(0));
  EXPECT_EQ(doc.Pixels().ResidentBytes(), 0u);

  // A file that no longer reads keeps its placeholder, and is not asked for
  // again at the next paint; one whose pixels the work area holds anyway
  // (read just before the file was spoilt) shows those.
  const QString spoilt = Write("spoilt.bmp", 50, 30, kGreen);
  doc.SetEditMode(1);
  HGLOBAL read = ReadPhotoFile(spoilt);
  ASSERT_NE(read, nullptr);
  doc.AddPath(spoilt, kUnknownResolution, CDib(read));
  QFile junk(dir.filePath("junk.jpg"));
  ASSERT_TRUE(junk.open(QIODevice::WriteOnly));
  junk.write("not a picture");
  junk.close();
  doc.AddPath(junk.fileName());
  QFile file(spoilt);
  ASSERT_TRUE(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
  file.write("spoilt");
  file.close();
  QSignalSpy failed(&view.Thumbnails(), &Thumbnailer::thumbnailFailed);
  doc.SetEditMode(0);
  ASSERT_TRUE(AllAnswered());
  EXPECT_EQ(failed.size(), 2);
  Expect(Shot(), {{140, 20, kGreen},
                  {190, 70, kGreen},
                  {239, 119, kGreen},
                  {270, 70, kFrameGrey},
                  {310, 70, kGrey}});
  EXPECT_EQ(view.Thumbnails().Outstanding(), 0);
  EXPECT_FALSE(doc.Pixels().Resident(2));
}

// Scrolling and resizing re-rank what waits: the rows shown and the one
// after them at 1, every other at 0.
TEST_F(FileThumbs, RowsOnScreenAreAskedFirst) {
  doc.SetEditMode(1);
  for (int i = 0; i < 40; ++i)  // 8 rows: 980 pixels, 453 shown
    doc.AddPath(Write(QString("p%1.bmp").arg(i), 8, 8, kOrange));
  Shot();
  ASSERT_EQ(view.verticalScrollBar()->maximum(), 980 - 453);
  const auto ranked = [&] {
    std::vector<int> ranks;
    for (int i = 0; i < doc.Count(); ++i)
      ranks.push_back(Rank(i).value_or(-1));
    return ranks;
  };
  const auto expected = [](int firstWanted, int lastWanted) {
    std::vector<int> ranks(40, 0);
    for (int i = firstWanted; i <= lastWanted; ++i)
      ranks[static_cast<size_t>(i)] = 1;
    return ranks;
  };
  EXPECT_EQ(ranked(), expected(0, 24));  // rows 0-3 shown, row 4 beyond
  view.verticalScrollBar()->setValue(240);
  EXPECT_EQ(ranked(), expected(5, 34));  // rows 1-5 shown, row 6 beyond
  view.verticalScrollBar()->setValue(view.verticalScrollBar()->maximum());
  EXPECT_EQ(ranked(), expected(20, 39));  // rows 4-7, nothing beyond
  view.verticalScrollBar()->setValue(0);
  view.resize(645, 200);  // rows 0-1 shown
  EXPECT_EQ(ranked(), expected(0, 14));

  // Made in that order: the first to come is from a wanted row.
  QSignalSpy ready(&view.Thumbnails(), &Thumbnailer::thumbnailReady);
  doc.SetEditMode(0);
  ASSERT_TRUE(AllAnswered());
  ASSERT_EQ(ready.size(), 40);
  const QString first = ready[0][0].toString();
  EXPECT_LT(QFileInfo(first).baseName().mid(1).toInt(), 15) << first.toStdString();
}

// An edited photo shows its pixels, whatever its file holds; saved to a file
// it shows that file's thumbnail again.
TEST_F(FileThumbs, EditedEntriesShowTheirPixels) {
  doc.AddPath(Write("blue.bmp", 640, 480, kBlue));
  ASSERT_TRUE(AllAnswered());
  Expect(Shot(), {{70, 70, kBlue}});
  doc.ReplaceImage(0, CDib(MakePhoto(480, 640, kGreen)), 1, QString());
  Expect(Shot(), {{70, 70, kGreen}, {33, 70, kGreen}, {32, 70, kGrey}});
  EXPECT_EQ(view.Thumbnails().Outstanding(), 0);

  const QString saved = Write("saved.bmp", 640, 480, kOrange);
  doc.ReplaceImage(0, CDib(MakePhoto(640, 480, kOrange)), 0, saved);
  ASSERT_TRUE(doc.Pixels().FileBacked(0));
  ASSERT_TRUE(AllAnswered());
  Expect(Shot(), {{70, 70, kOrange}, {70, 32, kGrey}, {70, 33, kOrange}});
}

// Leaving the work area takes an entry's request with it, unless another
// entry shows the same file; an empty work area asks for nothing.
TEST_F(FileThumbs, RemovalCancelsItsRequest) {
  doc.SetEditMode(1);
  const QString a = Write("a.bmp", 8, 8, kBlue), b = Write("b.bmp", 8, 8, kGreen);
  const QString c = Write("c.bmp", 8, 8, kOrange);
  for (const QString &path : {a, b, c, a})
    doc.AddPath(path);
  EXPECT_EQ(view.Thumbnails().Outstanding(), 3);
  doc.Remove(1);
  EXPECT_EQ(view.Thumbnails().Outstanding(), 2);
  EXPECT_FALSE(view.Thumbnails().Priority(b).has_value());
  doc.Remove(0);  // the last entry still shows a.bmp
  EXPECT_TRUE(view.Thumbnails().Priority(a).has_value());
  doc.Remove(1);
  doc.Remove(0);
  EXPECT_EQ(view.Thumbnails().Outstanding(), 0);
  EXPECT_FALSE(view.Thumbnails().Priority(a).has_value());
  EXPECT_FALSE(view.Thumbnails().Priority(c).has_value());

  doc.AddPath(c);
  QSignalSpy ready(&view.Thumbnails(), &Thumbnailer::thumbnailReady);
  QSignalSpy failed(&view.Thumbnails(), &Thumbnailer::thumbnailFailed);
  doc.SetEditMode(0);
  ASSERT_TRUE(AllAnswered());
  QApplication::processEvents();  // anything cancelled but made would have come by now
  ASSERT_EQ(ready.size(), 1);
  EXPECT_EQ(ready[0][0].toString(), c);
  EXPECT_EQ(failed.size(), 0);
  Expect(Shot(), {{70, 70, kOrange}});
}

// Environment variables a whole suite runs under, put back after it.
class SuiteEnvironment {
 public:
  void Set(const char *name, const char *value) {
    saved_.emplace_back(name, qgetenv(name));
    value ? qputenv(name, value) : qunsetenv(name);
  }
  void Restore() {
    for (auto it = saved_.rbegin(); it != saved_.rend(); ++it)
      it->second.isNull() ? qunsetenv(it->first) : qputenv(it->first, it->second);
    saved_.clear();
  }

 private:
  std::vector<std::pair<const char *, QByteArray>> saved_;
};

// Unsaved photos under a budget of nothing: all but the one last used go to
// spill files, and the grid shows them from the pictures kept of them.
class SpilledThumbs : public Thumbs {
 public:
  static void SetUpTestSuite() { environment.Set("KORVEL_MEMORY_BUDGET_MB", "0"); }
  static void TearDownTestSuite() { environment.Restore(); }

 protected:
  void Add(const CDib &photo) { doc.AddImage(photo.Handle(), 1, "/photos/p.jpg"); }
  // A shot taken with every spill file moved away, so that reading one back
  // would find nothing; painting leaves what is in memory as it was.
  QImage ShotUnread() {
    std::vector<bool> resident;
    for (int i = 0; i < doc.Count(); ++i) {
      resident.push_back(doc.Pixels().Resident(i));
      const QString spill = doc.Pixels().SpillPath(i);
      if (!spill.isEmpty()) {
        EXPECT_TRUE(QFile::rename(spill, spill + ".away"));
      }
    }
    const QImage shot = Shot();
    for (int i = 0; i < doc.Count(); ++i) {
      EXPECT_EQ(doc.Pixels().Resident(i), resident[size_t(i)]) << i;
      const QString spill = doc.Pixels().SpillPath(i);
      if (!spill.isEmpty()) {
        EXPECT_TRUE(QFile::rename(spill + ".away", spill));
      }
    }
    return shot;
  }
  // Each cell shows its photo exactly as drawing the whole photo there does.
  void ExpectCells(const QImage &shot, const std::vector<CDib> &photos) {
    ASSERT_EQ(view.CellRects().size(), qsizetype(photos.size()));
    QImage expected(shot.size(), QImage::Format_RGB32);
    QPainter painter(&expected);
    for (size_t i = 0; i < photos.size(); ++i) {
      const CDib &photo = photos[i];
      const QRect at =
          CellPictureRect(view.CellRects()[qsizetype(i)], photo.Width(), photo.Height());
      photo.Draw(&painter, at.left(), at.top(), at.right() + 1, at.bottom() + 1);
      EXPECT_EQ(shot.copy(at), expected.copy(at)) << "cell " << i;
    }
  }

  static inline SuiteEnvironment environment;
};

TEST_F(SpilledThumbs, DrawnFromTheirKeptPicturesWithoutReadingThemBack) {
  const CDib a = Patterned(600, 400), b = Patterned(300, 450), c = Patterned(640, 480);
  for (const CDib &photo : {a, b, c})
    Add(photo);
  ASSERT_TRUE(!doc.Pixels().Resident(0) && !doc.Pixels().Resident(1));
  ExpectCells(ShotUnread(), {a, b, c});

  // New pixels show at once, and once spilled from a picture of their own.
  const CDib d = Patterned(500, 500);
  doc.ReplaceImage(0, d, 1, QString());
  ExpectCells(ShotUnread(), {d, b, c});
  (void)doc.ImageAt(1);
  ASSERT_FALSE(doc.Pixels().Resident(0));
  ExpectCells(ShotUnread(), {d, b, c});
  // The entries after a removed one bring their pictures along.
  doc.Remove(0);
  ASSERT_FALSE(doc.Pixels().Resident(1));
  ExpectCells(ShotUnread(), {b, c});
  EXPECT_EQ(doc.ImageAt(1).Width(), 640u);  // the spill file was put back whole
}

// A photo too small to be worth a kept picture is read back to be drawn.
TEST_F(SpilledThumbs, APhotoWithoutAKeptPictureStillDraws) {
  const CDib small = Patterned(190, 190), other = Patterned(60, 40);
  Add(small);
  Add(other);
  ASSERT_FALSE(doc.Pixels().Resident(0));
  ASSERT_EQ(doc.Pixels().KeptPicture(0), nullptr);
  ExpectCells(Shot(), {small, other});
}

// With nowhere to spill, the photos stay in memory and are drawn from there.
class UnspillableThumbs : public SpilledThumbs {
 public:
  static void SetUpTestSuite() {
    SpilledThumbs::SetUpTestSuite();
    environment.Set("TMPDIR", "/dev/null");  // not a folder: nothing is made in it
    environment.Set("XDG_RUNTIME_DIR", nullptr);
  }
};

TEST_F(UnspillableThumbs, PhotosThatCouldNotSpillStillDraw) {
  const CDib a = Patterned(600, 400), b = Patterned(400, 600);
  Add(a);
  Add(b);
  ASSERT_TRUE(doc.Pixels().Resident(0) && doc.Pixels().SpillPath(0).isEmpty());
  EXPECT_EQ(doc.Pixels().KeptPicture(0), nullptr);
  ExpectCells(ShotUnread(), {a, b});
}

}  // namespace
