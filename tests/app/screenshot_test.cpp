// Renders the main window as a user sees it, with photos of several kinds in
// the work area, in thumbnail mode and in the editor, to PNG files under the
// build folder (tests/screenshots/) for a person to look at.
#include <gtest/gtest.h>

#include <QDir>
#include <QImage>
#include <QTest>

#include "app/formview.h"
#include "app/korvelapp.h"
#include "app/mainframe.h"
#include "photo/document.h"
#include "tests/app/scriptedprompt.h"
#include "views/thumbview.h"

namespace {

QImage Shot(CKorvelApp &app, const char *name) {
  app.MainFrame()->grab();  // a first paint settles the scroll bars
  QImage shot = app.MainFrame()->grab().toImage();
  QDir().mkpath(KORVEL_SCREENSHOT_DIR);
  shot.save(QString(KORVEL_SCREENSHOT_DIR) + "/" + name);
  return shot;
}

TEST(Screenshot, ThumbnailsAndEditor) {
  ScriptedPrompt prompt;
  CKorvelApp app;
  ASSERT_TRUE(app.InitInstance({"korvelapp"}));
  const char *files[] = {"jpeg/pillow__hopper.jpg",
                         "jpeg/pillow__hopper_gray.jpg",
                         "tiff/pillow__hopper.Lab.tif",
                         "tiff/oiioimg__libtiffpic_depth_flower-separated-contig-08.tif",
                         "jpeg/pillow__pil_sample_cmyk.jpg",
                         "bmp/pillow__bmp_g_pal8.bmp",
                         "jpeg/ljt__testorig.jpg"};
  for (const char *f : files)
    ASSERT_TRUE(app.View()->OpenPhoto(QString(KORVEL_TESTDATA_DIR) + "/" + f)) << f;
  CKorvelAppDoc *doc = app.Document();
  doc->SetCurrentIndex(6);
  // The grid shows opened photos from thumbnails made on other threads.
  Thumbnailer &thumbnailer = app.View()->GetThumbView()->Thumbnails();
  ASSERT_TRUE(QTest::qWaitFor([&] { return thumbnailer.Outstanding() == 0; }, 10000));
  const QImage thumbs = Shot(app, "thumbnails.png");
  ASSERT_EQ(thumbs.size(), QSize(800, 585));
  // The grid's background, and a photo in the first cell (a 128x128 photo
  // fills the cell's middle).
  const QPoint origin = app.View()->WorkAreaOrigin();
  EXPECT_EQ(thumbs.pixel(origin + QPoint(640, 300)), qRgb(220, 220, 220));
  EXPECT_NE(thumbs.pixel(origin + QPoint(70, 70)), qRgb(220, 220, 220));

  app.View()->OnCommand(32778);  // edit the current photo
  const QImage edit = Shot(app, "editor.png");
  EXPECT_EQ(edit.pixel(origin + QPoint(3, 3)), qRgb(220, 220, 220));
  EXPECT_NE(edit.pixel(origin + QPoint(322, 226)), qRgb(220, 220, 220));
  app.View()->OnCommand(1012);  // the rotate tool's buttons
  Shot(app, "editor-rotate.png");
  app.View()->OnCommand(1033);
}

}  // namespace
