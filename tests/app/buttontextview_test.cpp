// The string table and the help pane that shows it: exact sentences, the
// online site from the settings, the pane's pixels and its scroll bars.
#include <gtest/gtest.h>

#include <QImage>
#include <QPainter>
#include <QScrollBar>
#include <QSet>

#include "app/korvelapp.h"
#include "photo/settings.h"
#include "photo/strings.h"
#include "views/buttontextview.h"

namespace {

TEST(Strings, TheTableHoldsTheExactSentences) {
  const std::pair<int, const char *> cases[] = {
      {1000, "Welcome to the Korvel Application"},
      {1003, "Take your photo to Klaiplen's Grubod to make more changes."},
      {1020, "Zoom out of the image"},  // no full stop
      {128, "KorvelApp\n\nKorvel\n\n\nKorvelApp.Document\nKorvel Document"},
  };
  for (const auto &[id, text] : cases)
    EXPECT_EQ(LoadKorvelString(id), text) << id;
  QSet<QString> sentences;  // every help and editor number has its own sentence
  for (int id = 1000; id <= 1024; ++id)
    if (!LoadKorvelString(id).isEmpty()) sentences.insert(LoadKorvelString(id));
  EXPECT_EQ(sentences.size(), 25);
  for (int id : {-1, 0, 127, 129, 999, 1025, 32772})
    EXPECT_TRUE(LoadKorvelString(id).isEmpty()) << id;
}

TEST(Strings, OnlineInvitationsNameTheConfiguredSite) {
  const std::pair<QVariant, QString> cases[] = {
      {QVariant(), "www.korvel-online.example"},
      {"www.photos-elsewhere.example", "www.photos-elsewhere.example"},
      {"https://shop.korvel.example/", "shop.korvel.example"},  // an address as a plain name
  };
  const auto settings = KorvelSettings();  // the test program's own
  for (const auto &[stored, site] : cases) {
    if (stored.isValid())
      settings->setValue("online/site", stored);
    else
      settings->remove("online/site");
    EXPECT_EQ(LoadKorvelString(1017), "Visit Korvel Online at " + site + ".");
    EXPECT_EQ(LoadKorvelString(1018),
              "Share your photos with family and friends on Korvel Online at " + site + ".");
  }
  settings->remove("online/site");
}

class Pane : public testing::Test {
 protected:
  void SetUp() override {
    pane.setGeometry(0, 0, 545, 10);
    pane.show();
  }
  CButtonTextView pane;
};

TEST_F(Pane, ShowsTheChosenStringInItsColoursFromTheCorner) {
  // Pixel for pixel: 7-point Arial, near-white on the dark strip, its cell at the corner.
  auto check = [&](int id, const QString &text) {
    pane.SetText(id);
    EXPECT_EQ(pane.Text(), text);
    const QImage shot = pane.viewport()->grab().toImage().convertToFormat(QImage::Format_RGB32);
    QImage expected(shot.size(), QImage::Format_RGB32);
    expected.fill(qRgb(61, 55, 67));
    QPainter painter(&expected);
    QFont font("Arial");
    font.setPointSize(7);
    painter.setFont(font);
    painter.setPen(QColor(252, 253, 255));
    painter.drawText(QPoint(0, painter.fontMetrics().ascent()), text);
    EXPECT_EQ(shot, expected) << id;
  };
  check(0, "");
  check(1000, "Welcome to the Korvel Application");
  check(4242, "");
}

TEST_F(Pane, TooSmallForScrollBarsItNeverScrolls) {
  EXPECT_EQ(pane.viewport()->size(), QSize(545, 10));
  // With room, the 100 x 100 area scrolls where the pane is smaller.
  const std::tuple<QSize, int, int> cases[] = {
      {{545, 10}, 0, 0}, {{300, 50}, 50, 0}, {{80, 300}, 0, 20}, {{545, 10}, 0, 0}};
  for (const auto &[size, vMax, hMax] : cases) {
    SCOPED_TRACE(testing::Message() << size.width() << "x" << size.height());
    pane.resize(size);
    EXPECT_EQ(pane.verticalScrollBar()->isVisible(), vMax > 0);
    EXPECT_EQ(pane.horizontalScrollBar()->isVisible(), hMax > 0);
    EXPECT_EQ(pane.verticalScrollBar()->maximum(), vMax);
    EXPECT_EQ(pane.horizontalScrollBar()->maximum(), hMax);
  }
}

}  // namespace
