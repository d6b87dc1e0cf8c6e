// The string table and the help pane that shows it: the exact sentences, the
// online site taken from the settings, the pane's colours and corner, and its
// scroll bars.
#include <gtest/gtest.h>

#include <QImage>
#include <QPainter>
#include <QScrollBar>
#include <QSet>
#include <QTest>

#include "app/buttontextview.h"
#include "app/document.h"
#include "app/korvelapp.h"
#include "app/strings.h"

namespace {

constexpr QRgb kPaneBackground = qRgb(61, 55, 67);

// The test program keeps its settings in a folder of its own; this sets or
// (with an invalid value) removes the online site there.
void SetSite(const QVariant &value) {
  const auto settings = CKorvelApp::Settings();
  if (value.isValid())
    settings->setValue("online/site", value);
  else
    settings->remove("online/site");
}

TEST(Strings, TheTableHoldsTheExactSentences) {
  EXPECT_EQ(LoadKorvelString(1000), "Welcome to the Korvel Application");
  EXPECT_EQ(LoadKorvelString(1005), "Return to the thumbnails of photos you've opened.");
  EXPECT_EQ(LoadKorvelString(1021),
            "Please select an action that you would like to apply to this image.");
  EXPECT_EQ(LoadKorvelString(1003), "Take your photo to Klaiplen's Grubod to make more changes.");
  EXPECT_EQ(LoadKorvelString(1020), "Zoom out of the image");  // no full stop
  EXPECT_EQ(LoadKorvelString(1007),
            "Use the mouse to select the part of the photo that you would like to crop. "
            "Then click the crop button on the right.");
  EXPECT_EQ(LoadKorvelString(1012),
            "Click on the part of the photo where you want the colors of grass and leaves "
            "corrected.");
  EXPECT_EQ(LoadKorvelString(1016), "Rotate your photo 90 degrees to the right.");
  EXPECT_EQ(LoadKorvelString(128), "KorvelApp\n\nKorvel\n\n\nKorvelApp.Document\nKorvel Document");
  // Every help and editor number has its own sentence.
  QSet<QString> sentences;
  for (int id = 1000; id <= 1024; ++id) {
    const QString text = LoadKorvelString(id);
    EXPECT_FALSE(text.isEmpty()) << id;
    sentences.insert(text);
  }
  EXPECT_EQ(sentences.size(), 25);
  EXPECT_EQ(LoadKorvelString(1024),
            "Unable to find Adobe PhotoDeluxe. Please check to see if it is installed on your "
            "machine.");
  for (int id : {-1, 0, 127, 129, 999, 1025, 32772})
    EXPECT_TRUE(LoadKorvelString(id).isEmpty()) << id;
}

TEST(Strings, OnlineInvitationsNameTheConfiguredSite) {
  SetSite(QVariant());
  EXPECT_EQ(LoadKorvelString(1017), "Visit Korvel Online at www.korvel-online.example.");
  EXPECT_TRUE(LoadKorvelString(1018).startsWith("Share your photos"));
  EXPECT_TRUE(LoadKorvelString(1018).endsWith(" www.korvel-online.example."));
  SetSite("www.photos-elsewhere.example");
  EXPECT_EQ(LoadKorvelString(1017), "Visit Korvel Online at www.photos-elsewhere.example.");
  EXPECT_TRUE(LoadKorvelString(1018).endsWith(" www.photos-elsewhere.example."));
  SetSite("https://shop.korvel.example/");  // an address reads as a plain site name
  EXPECT_EQ(LoadKorvelString(1017), "Visit Korvel Online at shop.korvel.example.");
  SetSite(QVariant());
}

class Pane : public testing::Test {
 protected:
  void SetUp() override {
    pane.setGeometry(0, 0, 545, 10);
    pane.show();
  }
  QImage Shot() { return pane.viewport()->grab().toImage().convertToFormat(QImage::Format_RGB32); }
  // Pixels clearly lighter than the background: the text's ink.
  static QRect Ink(const QImage &image) {
    QRect ink;
    for (int y = 0; y < image.height(); ++y)
      for (int x = 0; x < image.width(); ++x)
        if (qGray(image.pixel(x, y)) > qGray(kPaneBackground) + 60) ink |= QRect(x, y, 1, 1);
    return ink;
  }

  CKorvelAppDoc doc;
  CButtonTextView pane{&doc};
};

TEST_F(Pane, ShowsTheChosenStringInItsColoursFromTheCorner) {
  EXPECT_TRUE(pane.Text().isEmpty());
  QImage shot = Shot();
  EXPECT_TRUE(Ink(shot).isNull());
  EXPECT_EQ(shot.pixel(0, 0) | 0xff000000u, kPaneBackground);

  pane.SetText(1000);
  EXPECT_EQ(pane.Text(), "Welcome to the Korvel Application");
  shot = Shot();
  const QRect ink = Ink(shot);
  ASSERT_FALSE(ink.isNull());
  EXPECT_LE(ink.left(), 2);  // the "W" starts at the corner
  EXPECT_LE(ink.top(), 3);
  EXPECT_EQ(shot.pixel(540, 5) | 0xff000000u, kPaneBackground);
  // Pixel for pixel what 7-point Arial in the near-white text colour looks
  // like with its cell at the corner.
  QImage expected(shot.size(), QImage::Format_RGB32);
  expected.fill(kPaneBackground);
  {
    QPainter painter(&expected);
    QFont font("Arial");
    font.setPointSize(7);
    painter.setFont(font);
    painter.setPen(QColor(252, 253, 255));
    painter.drawText(QPoint(0, painter.fontMetrics().ascent()), pane.Text());
  }
  EXPECT_EQ(shot, expected);

  pane.SetText(4242);
  EXPECT_TRUE(pane.Text().isEmpty());
  EXPECT_TRUE(Ink(Shot()).isNull());
}

TEST_F(Pane, TooSmallForScrollBarsItNeverScrolls) {
  QScrollBar *h = pane.horizontalScrollBar(), *v = pane.verticalScrollBar();
  EXPECT_FALSE(h->isVisible());
  EXPECT_FALSE(v->isVisible());
  EXPECT_EQ(v->maximum(), 0);
  EXPECT_EQ(h->maximum(), 0);
  EXPECT_EQ(pane.viewport()->size(), QSize(545, 10));

  // With room, the 100 x 100 area scrolls where the pane is smaller.
  pane.resize(300, 50);
  EXPECT_TRUE(v->isVisible());
  EXPECT_FALSE(h->isVisible());
  EXPECT_EQ(v->maximum(), 50);
  pane.resize(80, 300);
  EXPECT_FALSE(v->isVisible());
  EXPECT_TRUE(h->isVisible());
  EXPECT_EQ(h->maximum(), 20);
  pane.resize(545, 10);
  EXPECT_FALSE(v->isVisible());
  EXPECT_EQ(v->maximum(), 0);
}

TEST(PaneDocument, OtherViewsFindThePaneUntilItGoes) {
  CKorvelAppDoc doc;
  auto pane = std::make_unique<CButtonTextView>(&doc);
  CButtonTextView loose;  // neither document nor form: attached to nothing
  EXPECT_EQ(doc.FindView<CButtonTextView>(), pane.get());
  pane.reset();
  EXPECT_EQ(doc.FindView<CButtonTextView>(), nullptr);
}

}  // namespace
