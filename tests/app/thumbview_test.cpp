// The thumbnail view as the user sees and uses it: fitted pictures, captions
// and frames read back from the rendered view, the scroll height rule, and
// what plain, Ctrl, double and right clicks and the Delete key do.
#include <gtest/gtest.h>

#include <QAction>
#include <QApplication>
#include <QImage>
#include <QMenu>
#include <QScrollBar>
#include <QSignalSpy>
#include <QTest>

#include "app/document.h"
#include "app/thumbview.h"
#include "tests/app/photos.h"

namespace {

constexpr QRgb kGrey = qRgb(220, 220, 220), kBlack = qRgb(0, 0, 0), kRed = qRgb(255, 0, 0);
constexpr QRgb kOrange = qRgb(200, 120, 40), kBlue = qRgb(30, 60, 210), kGreen = qRgb(40, 180, 70);

struct Spot {
  int x, y;
  QRgb colour;
};

class Thumbs : public testing::Test {
 protected:
  void SetUp() override {
    view.setGeometry(0, 0, 645, 453);
    view.OnInitialUpdate();
    view.show();
  }
  void TearDown() override { QTest::mouseRelease(view.viewport(), Qt::LeftButton); }

  void Add(int width, int height, QRgb colour = kOrange, const QString &path = "/photos/p.jpg") {
    doc.AddImage(MakePhoto(width, height, colour), 0, path);
  }
  void AddMany(int count) {
    for (int i = 0; i < count; ++i)
      Add(640, 480);
  }
  // What the view shows. The first paint after the work area changes sets the
  // scroll height, which can bring or take the scroll bar, so the picture is
  // taken from the paint after that.
  QImage Shot() {
    view.viewport()->grab();
    QApplication::processEvents();
    return view.viewport()->grab().toImage().convertToFormat(QImage::Format_RGB32);
  }
  static void Expect(const QImage &shot, std::initializer_list<Spot> spots) {
    for (const Spot &s : spots)
      EXPECT_EQ(shot.pixel(s.x, s.y) | 0xff000000u, s.colour) << s.x << "," << s.y;
  }
  void Click(QPoint at, Qt::KeyboardModifiers keys = Qt::NoModifier) {
    QTest::mouseClick(view.viewport(), Qt::LeftButton, keys, at);
  }
  std::vector<uint32_t> Selection() const { return doc.Selection(); }
  QPoint CentreOf(int index) const { return view.CellRects().at(index).center(); }

  CKorvelAppDoc doc;
  CThumbView view{&doc};
};

TEST_F(Thumbs, CellsFollowTheGridAndAreRebuiltOnEveryPaint) {
  EXPECT_TRUE(view.CellRects().isEmpty());
  AddMany(7);
  Shot();
  ASSERT_EQ(view.CellRects().size(), 7);
  EXPECT_EQ(view.CellRects()[0], QRect(20, 20, 100, 100));
  EXPECT_EQ(view.CellRects()[4], QRect(500, 20, 100, 100));
  EXPECT_EQ(view.CellRects()[6], QRect(140, 140, 100, 100));
  doc.Remove(6);
  Shot();
  EXPECT_EQ(view.CellRects().size(), 6);
  EXPECT_EQ(doc.FindView<CThumbView>(), &view);
}

TEST_F(Thumbs, PicturesAreFittedAndCentredInTheirCells) {
  Add(640, 480, kOrange);  // cell (20, 20): 100 x 75, rows 33-106
  Add(480, 640, kBlue);    // cell (140, 20): columns 153-226
  Add(50, 30, kGreen);     // cell (260, 20): the whole cell, frame included
  Add(101, 50, kBlue);     // cell (380, 20): 100 x 49 loses a row: 46-93
  Add(100, 100, kOrange);  // cell (500, 20): the whole cell
  Expect(Shot(), {{70, 20, kBlack},   {70, 32, kGrey},   {70, 33, kOrange},  {70, 106, kOrange},
                  {70, 107, kGrey},   {70, 119, kBlack}, {20, 70, kOrange},  {119, 70, kOrange},
                  {20, 25, kBlack},   {152, 70, kGrey},  {153, 70, kBlue},   {226, 70, kBlue},
                  {227, 70, kGrey},   {190, 20, kBlue},  {190, 119, kBlue},  {260, 20, kGreen},
                  {359, 119, kGreen}, {360, 70, kGrey},  {430, 45, kGrey},   {430, 46, kBlue},
                  {430, 93, kBlue},   {430, 94, kGrey},  {500, 20, kOrange}, {599, 119, kOrange},
                  {600, 70, kGrey}});
}

TEST_F(Thumbs, ContentHeightDecidesScrolling) {
  QScrollBar *bar = view.verticalScrollBar();
  AddMany(10);                          // 2 rows: 260, below 454
  Expect(Shot(), {{640, 450, kGrey}});  // the whole client rectangle is background
  EXPECT_EQ(bar->maximum(), 0);
  EXPECT_FALSE(bar->isVisible());
  AddMany(10);  // 4 rows: 500
  Shot();
  EXPECT_EQ(bar->maximum(), 500 - 453);
  EXPECT_TRUE(bar->isVisible());
  EXPECT_FALSE(view.horizontalScrollBar()->isVisible());
  EXPECT_EQ(bar->pageStep(), 50);  // a tenth of the content

  bar->setValue(bar->maximum());  // row 3 (content 380) now starts at 333
  Expect(Shot(), {{70, 333, kBlack}, {70, 353, kOrange}, {10, 452, kGrey}});
  for (int i = 19; i >= 10; --i)
    doc.Remove(i);
  Expect(Shot(), {{70, 20, kBlack}});  // back at the top, without the bar
  EXPECT_EQ(bar->maximum(), 0);
  EXPECT_FALSE(bar->isVisible());
}

TEST_F(Thumbs, CaptionsShowFileNamesCentredUnderTheirCells) {
  Add(640, 480, kOrange, "/photos/sunset.jpg");
  Add(640, 480, kOrange, "");
  Add(640, 480, kOrange, "C:\\My Zibs\\a_file_name_much_wider_than_its_cell_Zib001.jpg");
  const QImage shot = Shot();
  // Dark pixels in the caption rows (122-139) between two columns.
  auto ink = [&](int left, int right) {
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
  EXPECT_TRUE(ink(140, 240).isEmpty());            // no name, no caption
  // A name wider than the strip is cut at the strip's ends.
  EXPECT_GT(ink(260, 360).size(), 10);
  EXPECT_TRUE(ink(0, 20).isEmpty());
  EXPECT_TRUE(ink(241, 260).isEmpty());
  EXPECT_TRUE(ink(360, 380).isEmpty());
  for (int x = 0; x < 645; x += 3)
    Expect(shot, {{x, 120, kGrey}, {x, 121, kGrey}, {x, 140, kGrey}});
}

TEST_F(Thumbs, RedFramesMarkTheCurrentEntryOrTheSelection) {
  AddMany(4);
  Add(50, 30, kGreen);  // covers its own black frame
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
  doc.Selection() = {0, 4, 0};
  EXPECT_EQ(tops(), (std::vector<QRgb>{kRed, kBlack, kBlack, kBlack, kRed}));
  doc.Selection() = {9};  // no longer in the work area
  EXPECT_EQ(tops(), (std::vector<QRgb>{kBlack, kBlack, kBlack, kBlack, kGreen}));
}

TEST_F(Thumbs, LeftClicksSetTheCurrentEntryAndTheSelection) {
  AddMany(6);
  Shot();
  doc.SetCurrentIndex(1);
  doc.Selection() = {0, 2};
  for (QPoint background : {QPoint(10, 10), QPoint(130, 70), QPoint(70, 125)})
    Click(background);
  EXPECT_EQ(doc.CurrentIndex(), 1);
  EXPECT_EQ(Selection(), (std::vector<uint32_t>{0, 2}));

  Click(CentreOf(1));
  EXPECT_TRUE(Selection().empty());
  Click(CentreOf(3), Qt::ControlModifier);  // the photo that was current comes first
  EXPECT_EQ(doc.CurrentIndex(), 3);
  EXPECT_EQ(Selection(), (std::vector<uint32_t>{1, 3}));
  Expect(Shot(), {{70, 20, kBlack}, {190, 20, kRed}, {430, 20, kRed}});
  Click(CentreOf(3), Qt::ControlModifier);
  EXPECT_EQ(Selection(), (std::vector<uint32_t>{1, 3, 3}));

  Click(CentreOf(2), Qt::ControlModifier | Qt::ShiftModifier);  // a plain click
  EXPECT_EQ(doc.CurrentIndex(), 2);
  EXPECT_TRUE(Selection().empty());
  Click(CentreOf(4), Qt::ControlModifier | Qt::AltModifier);  // Alt is no key flag
  EXPECT_EQ(Selection(), (std::vector<uint32_t>{2, 4}));

  doc.SetCurrentIndex(-1);
  doc.Selection().clear();
  Click(CentreOf(0), Qt::ControlModifier);
  EXPECT_EQ(Selection(), (std::vector<uint32_t>{0}));

  // With the right button also held, Ctrl-click is a plain click.
  view.SetMenuRunner([](QMenu *, const QPoint &) { return nullptr; });
  QTest::mousePress(view.viewport(), Qt::RightButton, Qt::NoModifier, QPoint(10, 10));
  Click(CentreOf(2), Qt::ControlModifier);
  QTest::mouseRelease(view.viewport(), Qt::RightButton, Qt::NoModifier, QPoint(10, 10));
  EXPECT_TRUE(Selection().empty());

  CThumbView unpainted(&doc);  // before its first paint it has no cells
  unpainted.setGeometry(0, 0, 645, 453);
  QTest::mouseClick(unpainted.viewport(), Qt::LeftButton, Qt::NoModifier, QPoint(70, 70));
  EXPECT_EQ(doc.CurrentIndex(), 2);
}

TEST_F(Thumbs, ScrolledClicksAndTheContextMenu) {
  AddMany(20);
  Shot();
  view.verticalScrollBar()->setValue(47);
  Shot();
  QWidget *port = view.viewport();
  const QPoint spot(70, 100);  // row 1 with the scroll offset, row 0 without

  Click(spot);
  EXPECT_EQ(doc.CurrentIndex(), 5);

  QStringList texts;
  QList<int> ids;
  QPoint shownAt;
  view.SetMenuRunner([&](QMenu *menu, const QPoint &at) -> QAction * {
    QAction *crop = nullptr;
    for (QAction *action : menu->actions()) {
      texts << (action->isSeparator() ? QString("-") : action->text());
      ids << action->data().toInt();
      if (action->text() == "&Crop Image") crop = action;
    }
    shownAt = at;
    return crop;
  });
  QSignalSpy commands(&view, &CThumbView::commandRequested);
  doc.Selection() = {7, 8};
  QTest::mouseClick(port, Qt::RightButton, Qt::NoModifier, spot);
  EXPECT_EQ(doc.CurrentIndex(), 0);
  EXPECT_EQ(Selection(), (std::vector<uint32_t>{7, 8}));
  EXPECT_EQ(texts, (QStringList{"&Edit Image", "&Delete Image", "&Save Image", "-", "&Rotate Image",
                                "&Crop Image", "Co&lor Correction", "Re&move Red Eye"}));
  EXPECT_EQ(ids, (QList<int>{32778, 32772, 32776, 0, 32773, 32774, 32779, 32775}));
  EXPECT_EQ(shownAt, port->mapToGlobal(spot));
  ASSERT_EQ(commands.size(), 1);
  EXPECT_EQ(commands[0][0].toInt(), 32774);

  // Unscrolled, y 130 lies between rows: no menu, nothing changes.
  texts.clear();
  QTest::mouseClick(port, Qt::RightButton, Qt::NoModifier, QPoint(70, 130));
  EXPECT_TRUE(texts.isEmpty());
  EXPECT_EQ(doc.CurrentIndex(), 0);
  view.SetMenuRunner([](QMenu *, const QPoint &) { return nullptr; });  // closed unchosen
  QTest::mouseClick(port, Qt::RightButton, Qt::NoModifier, QPoint(190, 70));
  EXPECT_EQ(doc.CurrentIndex(), 1);
  EXPECT_EQ(commands.size(), 1);

  QSignalSpy edits(&view, &CThumbView::editPhotoRequested);
  QTest::mouseDClick(port, Qt::LeftButton, Qt::NoModifier, spot);  // with the offset
  EXPECT_EQ(doc.CurrentIndex(), 5);
  EXPECT_EQ(edits.size(), 1);
}

TEST_F(Thumbs, DoubleClickOpensThePhotoForEditing) {
  AddMany(3);
  Shot();
  QSignalSpy edits(&view, &CThumbView::editPhotoRequested);
  QWidget *port = view.viewport();
  doc.Selection() = {0, 1};
  QTest::mouseDClick(port, Qt::LeftButton, Qt::NoModifier, QPoint(10, 10));
  EXPECT_EQ(edits.size(), 0);
  EXPECT_EQ(doc.EditMode(), 0);

  QTest::mouseDClick(port, Qt::LeftButton, Qt::NoModifier, CentreOf(2));
  EXPECT_EQ(edits.size(), 1);
  EXPECT_EQ(doc.EditMode(), 1);
  EXPECT_EQ(doc.CurrentIndex(), 2);
  EXPECT_EQ(Selection(), (std::vector<uint32_t>{0, 1}));  // the form checks it

  int menus = 0;
  view.SetMenuRunner([&](QMenu *, const QPoint &) -> QAction * {
    ++menus;
    return nullptr;
  });
  QTest::mouseDClick(port, Qt::RightButton, Qt::NoModifier, CentreOf(0));
  QTest::mouseRelease(port, Qt::RightButton, Qt::NoModifier, CentreOf(0));
  EXPECT_EQ(menus, 0);
  EXPECT_EQ(edits.size(), 1);
}

TEST_F(Thumbs, DeleteKeyAsksToRemoveThePhoto) {
  AddMany(2);
  Shot();
  view.activateWindow();
  ASSERT_TRUE(QTest::qWaitForWindowActive(&view));
  Click(CentreOf(1));
  EXPECT_TRUE(view.hasFocus());
  QSignalSpy removals(&view, &CThumbView::removePhotoRequested);
  QTest::keyClick(&view, Qt::Key_Backspace);
  EXPECT_EQ(removals.size(), 0);
  QTest::keyClick(&view, Qt::Key_Delete);
  EXPECT_EQ(removals.size(), 1);
  EXPECT_EQ(doc.Count(), 2);  // the view only asks
}

}  // namespace
