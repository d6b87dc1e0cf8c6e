// The main window as a user meets it: which controls show and work in each
// mode and tool, the refusals, zoom steps, the editor's keep-changes question
// and closing with unsaved photos.
#include <gtest/gtest.h>

#include <QFile>
#include <QMimeData>
#include <QSet>
#include <QTemporaryDir>
#include <QTest>
#include <algorithm>

#include "app/buttontextview.h"
#include "app/document.h"
#include "app/formcontrols.h"
#include "app/formview.h"
#include "app/korvelapp.h"
#include "app/mainframe.h"
#include "app/strings.h"
#include "app/thumbview.h"
#include "edit/imageview.h"
#include "tests/app/photos.h"
#include "tests/app/scriptedprompt.h"
#include "tests/raster/testutil.h"

namespace {

class Form : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(app.InitInstance({"korvelapp"}));
    doc = app.Document();
    form = app.View();
  }
  void TearDown() override {
    // Nothing unsaved is left, so the window closes without a question.
    for (int i = 0; i < doc->Count(); ++i)
      doc->ReplaceImage(i, doc->ImageAt(i), 0, QString());
    app.MainFrame()->close();
  }

  // Ids of the form's controls that the user can see.
  QSet<int> Visible() const {
    QSet<int> ids;
    for (int i = 0; i < kFormControlCount; ++i)
      if (form->Control(kFormControls[i].id)->isVisible()) ids.insert(kFormControls[i].id);
    return ids;
  }
  QString Help() const { return form->GetButtonTextView()->Text(); }
  void Add(int width, int height, const QString &path = "/photos/p.jpg", uint8_t unsaved = 0) {
    doc->AddImage(MakePhoto(width, height), unsaved, path);
  }

  ScriptedPrompt prompt;
  CKorvelApp app;
  CKorvelAppDoc *doc = nullptr;
  CKorvelAppView *form = nullptr;
};

const QSet<int> kThumbnailMode = {1014, 1015, 1037, 1023, 1032, 1017, 1011, 1024, 1012, 1013, 1020};

TEST_F(Form, StartsInThumbnailModeWithItsControls) {
  EXPECT_EQ(Visible(), kThumbnailMode);
  EXPECT_TRUE(form->Control(1014)->isEnabled());
  EXPECT_TRUE(form->GetThumbView()->isVisible());
  EXPECT_FALSE(form->GetImageView()->isVisible());
  EXPECT_EQ(form->GetThumbView()->geometry(), QRect(form->WorkAreaOrigin(), QSize(645, 453)));
  EXPECT_EQ(form->WorkAreaOrigin(), QPoint(33, 47));
  EXPECT_EQ(Help(), LoadKorvelString(1000));
  EXPECT_EQ(form->ZoomCombo()->currentData().toInt(), 100);
  EXPECT_EQ(app.MainFrame()->windowTitle(), "Korvel");
  EXPECT_EQ(app.MainFrame()->size(), QSize(800, 585));
  // F1 brings the About box from anywhere in the window.
  app.MainFrame()->activateWindow();
  ASSERT_TRUE(QTest::qWaitForWindowActive(app.MainFrame()));
  QTest::keyClick(form->Control(1014), Qt::Key_F1);
  EXPECT_EQ(prompt.aboutShown, 1);
  // Skinned buttons take their bitmaps' size.
  EXPECT_EQ(form->Control(1014)->size(), QSize(85, 37));
  EXPECT_EQ(form->Control(1030)->size(), QSize(73, 24));
}

TEST_F(Form, EditModeAndEachToolShowTheirOwnButtons) {
  Add(320, 240);
  doc->SetCurrentIndex(0);
  form->OnCommand(32778);  // Edit Image
  QSet<int> edit = kThumbnailMode;
  edit.remove(1017);
  edit += {1007, 1008, 1033};
  EXPECT_EQ(Visible(), edit);
  EXPECT_FALSE(form->Control(1014)->isEnabled());
  EXPECT_EQ(doc->EditMode(), 1);
  EXPECT_TRUE(form->GetImageView()->isVisible());
  EXPECT_FALSE(form->GetThumbView()->isVisible());
  EXPECT_EQ(Help(), LoadKorvelString(1021));

  struct Tool {
    int command;
    QSet<int> shown;
    const char *mode;
    int help;
  };
  const Tool tools[] = {
      {1011, {1010, 1018, 1003, 1002}, "CROP", 1007},
      {1012, {1005, 1006, 1018, 1003, 1002}, "", 1009},
      {1024, {1030, 1029, 1026, 1025, 1018, 1003, 1002}, "COLORCORRECTION", 1008},
      {1013, {1031, 1018, 1003, 1002}, "REDEYE", 1010},
      {1011, {1010, 1018, 1003, 1002}, "CROP", 1007},  // and nothing of red eye stays
  };
  for (const Tool &t : tools) {
    form->OnCommand(t.command);
    EXPECT_EQ(Visible(), edit + t.shown) << t.command;
    EXPECT_EQ(form->GetImageView()->Mode(), t.mode) << t.command;
    EXPECT_EQ(Help(), LoadKorvelString(t.help)) << t.command;
  }
  form->OnCommand(1013);
  EXPECT_FALSE(form->Control(1031)->isEnabled());  // shown, but the click does the work
  EXPECT_TRUE(prompt.messages.isEmpty());

  form->OnCommand(1033);  // back to the thumbnails: nothing changed, no question
  EXPECT_EQ(Visible(), kThumbnailMode);
  EXPECT_TRUE(form->Control(1014)->isEnabled());
  EXPECT_EQ(doc->EditMode(), 0);
  EXPECT_EQ(Help(), LoadKorvelString(1000));
}

TEST_F(Form, RefusalsTellWhyAndChangeNothing) {
  form->OnCommand(1011);
  EXPECT_EQ(prompt.messages.value(0), "Please select an image that you would like to edit");
  EXPECT_EQ(Help(), LoadKorvelString(1007));  // the help changes all the same
  EXPECT_EQ(Visible(), kThumbnailMode);
  form->OnCommand(1022);
  EXPECT_EQ(prompt.messages.value(1), "Please select an image that you would like to edit");
  form->OnCommand(1017);
  EXPECT_EQ(prompt.messages.value(2),
            "Please select an image that you would like to remove from your work area");

  Add(641, 480);
  Add(640, 481);
  Add(640, 480);
  doc->SetCurrentIndex(0);
  doc->Selection() = {0, 2};
  form->OnCommand(1012);
  EXPECT_EQ(prompt.messages.value(3), "Please select only one image that you would like to edit");
  form->OnCommand(32772);
  EXPECT_EQ(prompt.messages.value(4),
            "Please select only one image that you would like to remove from your work area");
  EXPECT_EQ(doc->EditMode(), 0);

  doc->Selection().clear();
  const QString tooLarge = "Color correction is not supported for images larger than 640x480";
  for (int index : {0, 1}) {
    const QString help = Help();
    doc->SetCurrentIndex(index);
    form->OnCommand(1024);
    EXPECT_EQ(prompt.messages.last(), tooLarge);
    EXPECT_EQ(Help(), help);  // not even the help changes
    EXPECT_EQ(doc->EditMode(), 0);
  }
  doc->SetCurrentIndex(2);
  const int before = int(prompt.messages.size());
  form->OnCommand(1024);
  EXPECT_EQ(prompt.messages.size(), before);
  EXPECT_EQ(form->GetImageView()->Mode(), "COLORCORRECTION");
}

TEST_F(Form, RemovingAPhotoAsksFirst) {
  Add(10, 10, "/a/one.jpg");
  Add(10, 10, "/a/two.jpg");
  doc->SetCurrentIndex(1);
  prompt.answers = {KorvelPrompt::IDNO, KorvelPrompt::IDCANCEL, KorvelPrompt::IDYES};
  for (int round = 0; round < 3; ++round)
    form->OnCommand(1017);
  EXPECT_EQ(prompt.messages,
            QStringList(3, "Are you sure you want to remove this image from your work area?"));
  EXPECT_EQ(prompt.buttonSets.back(), KorvelPrompt::MB_YESNOCANCEL);
  ASSERT_EQ(doc->Count(), 1);
  EXPECT_EQ(doc->PathAt(0), "/a/one.jpg");
  EXPECT_EQ(doc->CurrentIndex(), -1);
  EXPECT_EQ(Help(), LoadKorvelString(1006));
}

TEST_F(Form, ZoomStepsAndLargePhotosStartAtThreeQuarters) {
  Add(645, 400);
  Add(644, 452);
  doc->SetCurrentIndex(0);
  form->OnCommand(32778);
  EXPECT_EQ(form->ZoomCombo()->currentData().toInt(), 75);
  EXPECT_EQ(form->GetImageView()->CurrentImage()->Width(), 483u);
  EXPECT_EQ(form->GetImageView()->CurrentImage()->Height(), 300u);
  EXPECT_EQ(Help(), LoadKorvelString(1021));
  form->OnCommand(1003);
  doc->SetCurrentIndex(1);
  form->OnCommand(32778);
  EXPECT_EQ(form->ZoomCombo()->currentData().toInt(), 100);
  EXPECT_EQ(form->GetImageView()->CurrentImage()->Width(), 644u);

  for (int i = 0; i < 5; ++i)
    form->OnCommand(1007);
  EXPECT_EQ(form->ZoomCombo()->currentData().toInt(), 800);
  EXPECT_EQ(Help(), LoadKorvelString(1019));
  EXPECT_EQ(form->GetImageView()->CurrentImage()->Width(), 644u * 8);
  for (int i = 0; i < 8; ++i)
    form->OnCommand(1008);
  EXPECT_EQ(form->ZoomCombo()->currentData().toInt(), 25);
  EXPECT_EQ(Help(), LoadKorvelString(1020));
  EXPECT_EQ(form->GetImageView()->CurrentImage()->Width(), 161u);
  EXPECT_FALSE(form->GetImageView()->Changed());  // zooming is not an edit
}

TEST_F(Form, LeavingTheEditorAsksWhetherToKeepChanges) {
  Add(30, 20, "/a/photo.jpg");
  doc->SetCurrentIndex(0);
  form->OnCommand(1012);
  form->OnCommand(1006);  // rotate right
  EXPECT_EQ(Help(), LoadKorvelString(1016));
  const QString question = "The image has changed. Do you want to keep these changes?";
  prompt.answers = {KorvelPrompt::IDCANCEL, KorvelPrompt::IDYES};
  form->OnCommand(1003);
  EXPECT_EQ(prompt.messages, QStringList{question});
  EXPECT_EQ(doc->EditMode(), 1);  // cancelled: still editing
  form->OnCommand(1003);
  EXPECT_EQ(doc->EditMode(), 0);
  EXPECT_EQ(doc->ImageAt(0).Width(), 20u);  // kept: the work area has the turned photo
  EXPECT_EQ(doc->UnsavedAt(0), 1);
  EXPECT_EQ(doc->PathAt(0), "/a/photo.jpg");

  // Undo is a single-level toggle.
  form->OnCommand(32778);
  form->OnCommand(1012);
  form->OnCommand(1005);
  CImageView *view = form->GetImageView();
  EXPECT_EQ(view->CurrentImage()->Width(), 30u);
  form->OnCommand(1018);
  EXPECT_EQ(view->CurrentImage()->Width(), 20u);
  form->OnCommand(1018);
  EXPECT_EQ(view->CurrentImage()->Width(), 30u);
  form->OnCommand(1002);  // keep
  EXPECT_EQ(doc->ImageAt(0).Width(), 30u);
  EXPECT_FALSE(view->Changed());
}

TEST_F(Form, ClosingTheWindowAsksAboutEveryUnsavedPhoto) {
  Add(8, 8, "/a/one.jpg", 1);
  Add(8, 8, "/a/two.jpg", 0);
  Add(8, 8, "/a/three.jpg", 1);
  KorvelPrompt::SavePhotoAnswer escape;  // closed without a button
  prompt.savePhoto = {escape};
  EXPECT_FALSE(app.MainFrame()->close());
  EXPECT_EQ(prompt.savePhotoNames, QStringList{"one.jpg"});
  KorvelPrompt::SavePhotoAnswer no{KorvelPrompt::IDOK, "NO"};
  prompt.savePhoto = {no, no};
  EXPECT_TRUE(app.MainFrame()->close());
  EXPECT_EQ(prompt.savePhotoNames, (QStringList{"one.jpg", "one.jpg", "three.jpg"}));
  EXPECT_EQ(prompt.beeps, 3);

  // The hidden Quit button goes through the same question.
  app.MainFrame()->show();
  prompt.savePhoto = {escape};
  form->OnCommand(1016);
  EXPECT_TRUE(app.MainFrame()->isVisible());
  EXPECT_EQ(prompt.savePhotoNames.size(), 4);
}

TEST_F(Form, DroppedFilesOpenOneByOneInThumbnailMode) {
  QTemporaryDir dir;
  const QString good = dir.filePath("drop.bmp"), bad = dir.filePath("notes.txt");
  ASSERT_EQ(testutil::WritePicture(good.toStdString(), RasFormatBmp, RasModelRgb,
                                   testutil::Pattern(6, 4, 3)),
            RasOk);
  QFile text(bad);
  ASSERT_TRUE(text.open(QIODevice::WriteOnly));
  text.write("not a photo");
  text.close();
  QMimeData data;
  data.setUrls({QUrl::fromLocalFile(good), QUrl::fromLocalFile(bad), QUrl::fromLocalFile(good)});
  // A drop reaches the widget that accepted the drag's entry.
  QDragEnterEvent accepted(QPoint(100, 100), Qt::CopyAction, &data, Qt::LeftButton, Qt::NoModifier);
  QCoreApplication::sendEvent(form, &accepted);
  EXPECT_TRUE(accepted.isAccepted());
  QDropEvent drop(QPointF(100, 100), Qt::CopyAction, &data, Qt::LeftButton, Qt::NoModifier);
  QCoreApplication::sendEvent(form, &drop);
  ASSERT_EQ(doc->Count(), 2);
  EXPECT_EQ(doc->PathAt(1), good);
  EXPECT_EQ(prompt.messages, QStringList{"Cannot open file " + bad});

  doc->SetCurrentIndex(0);  // in the editor, drops are not taken
  form->OnCommand(32778);
  QDragEnterEvent enter(QPoint(100, 100), Qt::CopyAction, &data, Qt::LeftButton, Qt::NoModifier);
  QCoreApplication::sendEvent(form, &enter);
  EXPECT_FALSE(enter.isAccepted());
}

TEST(FormStartUp, OpensTheCommandLineAsOnePath) {
  ScriptedPrompt prompt;
  QTemporaryDir dir;
  const QString path = dir.filePath("my holiday photo.bmp");
  const testutil::Picture pic = testutil::Pattern(7, 5, 3);
  ASSERT_EQ(testutil::WritePicture(path.toStdString(), RasFormatBmp, RasModelRgb, pic), RasOk);
  CKorvelApp app;
  const QStringList words = path.split(' ');
  ASSERT_TRUE(app.InitInstance(QStringList{"korvelapp"} + words));
  ASSERT_EQ(app.Document()->Count(), 1);
  EXPECT_EQ(app.Document()->PathAt(0), path);
  EXPECT_EQ(app.Document()->UnsavedAt(0), 0);
  EXPECT_EQ(app.Document()->ImageAt(0).Width(), 7u);

  CKorvelApp missing;  // a bad path opens nothing and says nothing
  ASSERT_TRUE(missing.InitInstance({"korvelapp", "/no/such/file.jpg"}));
  EXPECT_EQ(missing.Document()->Count(), 0);
  EXPECT_TRUE(prompt.messages.isEmpty());
}

}  // namespace
