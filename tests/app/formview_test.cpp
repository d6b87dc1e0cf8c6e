// The main window as a user meets it: which controls show and work in each
// mode and tool, the refusals, zoom steps, the editor's keep-changes question
// and closing with unsaved photos.
#include <gtest/gtest.h>

#include <QMimeData>
#include <QSet>
#include <QTemporaryDir>
#include <QTest>

#include "app/formview.h"
#include "app/korvelapp.h"
#include "app/mainframe.h"
#include "photo/document.h"
#include "photo/strings.h"
#include "res/formcontrols.h"
#include "tests/app/photos.h"
#include "tests/app/scriptedprompt.h"
#include "tests/app/windowtest.h"
#include "tests/raster/testutil.h"
#include "views/buttontextview.h"
#include "views/imageview.h"
#include "views/thumbview.h"

namespace {

const QSet<int> kThumbnailMode = {1014, 1015, 1037, 1023, 1032, 1017, 1011, 1024, 1012, 1013, 1020};

class Form : public MainWindowTest {
 protected:
  // Ids of the form's controls that the user can see.
  QSet<int> Visible() const {
    QSet<int> ids;
    for (int i = 0; i < kFormControlCount; ++i)
      if (form->Control(kFormControls[i].id)->isVisible()) ids.insert(kFormControls[i].id);
    return ids;
  }
  QString Help() const { return form->GetButtonTextView()->Text(); }
  int Zoom() const { return form->ZoomCombo()->currentData().toInt(); }
  int ShownWidth() const { return form->GetImageView()->DrawnSize().width(); }
  // Whether the form takes a drag carrying `data`.
  bool TakesDrag(QMimeData *data) {
    QDragEnterEvent enter(QPoint(100, 100), Qt::CopyAction, data, Qt::LeftButton, Qt::NoModifier);
    QCoreApplication::sendEvent(form, &enter);
    return enter.isAccepted();
  }
  // `command` answers with exactly `text` and leaves the thumbnails as they were.
  void Refuses(int command, const QString &text) {
    prompt.messages.clear();
    form->OnCommand(command);
    EXPECT_EQ(prompt.messages, QStringList{text}) << command;
    EXPECT_EQ(doc->EditMode(), 0) << command;
  }
  void ExpectThumbnailMode() const {
    EXPECT_EQ(Visible(), kThumbnailMode);
    EXPECT_TRUE(form->Control(1014)->isEnabled());
    EXPECT_TRUE(form->GetThumbView()->isVisible());
    EXPECT_FALSE(form->GetImageView()->isVisible());
    EXPECT_EQ(doc->EditMode(), 0);
    EXPECT_EQ(Help(), LoadKorvelString(1000));
  }
  void Add(int width, int height, const QString &path = "/photos/p.jpg", uint8_t unsaved = 0) {
    doc->AddImage(MakePhoto(width, height), unsaved, path);
  }
};

TEST_F(Form, StartsInThumbnailModeWithItsControls) {
  ExpectThumbnailMode();
  EXPECT_EQ(form->GetThumbView()->geometry(), QRect(form->WorkAreaOrigin(), QSize(645, 453)));
  EXPECT_EQ(form->WorkAreaOrigin(), QPoint(33, 47));
  EXPECT_EQ(Zoom(), 100);
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

  const std::tuple<int, QSet<int>, const char *, int> tools[] = {
      {1011, {1010, 1018, 1003, 1002}, "CROP", 1007},
      {1012, {1005, 1006, 1018, 1003, 1002}, "", 1009},
      {1024, {1030, 1029, 1026, 1025, 1018, 1003, 1002}, "COLORCORRECTION", 1008},
      {1013, {1031, 1018, 1003, 1002}, "REDEYE", 1010},
      {1011, {1010, 1018, 1003, 1002}, "CROP", 1007},  // and nothing of red eye stays
  };
  for (const auto &[command, shown, mode, help] : tools) {
    SCOPED_TRACE(command);
    form->OnCommand(command);
    EXPECT_EQ(Visible(), edit + shown);
    EXPECT_EQ(form->GetImageView()->Mode(), mode);
    EXPECT_EQ(Help(), LoadKorvelString(help));
  }
  form->OnCommand(1013);
  EXPECT_FALSE(form->Control(1031)->isEnabled());  // shown, but the click does the work
  EXPECT_TRUE(prompt.messages.isEmpty());

  form->OnCommand(1033);  // back to the thumbnails: nothing changed, no question
  ExpectThumbnailMode();
}

// Every screen against its own lists: the controls that show, those of them
// that cannot be pressed, and the colour tool the form holds.
TEST_F(Form, EachScreenShowsAndEnablesExactlyItsControls) {
  Add(320, 240);
  doc->SetCurrentIndex(0);
  using S = CKorvelAppView::Screen;
  const QSet<int> always = {1014, 1015, 1037, 1023, 1032, 1011, 1024, 1012, 1013, 1020};
  const QSet<int> editor = always + QSet<int>{1007, 1008, 1033};
  const QSet<int> tools = editor + QSet<int>{1018, 1002, 1003};
  const QSet<int> colour = tools + QSet<int>{1030, 1029, 1026, 1025};
  struct Step {
    int command;  // 0: none
    S screen;
    QSet<int> shown, disabled;
    int tool;
  };
  const Step steps[] = {
      {0, S::kThumbnails, always + QSet<int>{1017}, {}, -1},
      {32778, S::kEditor, editor, {1014}, -1},
      {1011, S::kCrop, tools + QSet<int>{1010}, {1014}, -1},
      {1012, S::kRotate, tools + QSet<int>{1005, 1006}, {1014}, -1},
      {1024, S::kColor, colour, {1014}, -1},
      {1030, S::kColor, colour, {1014, 1030}, 2},
      {1029, S::kColor, colour, {1014, 1029}, 1},
      {1026, S::kColor, colour, {1014, 1026}, 3},
      {1025, S::kColor, colour, {1014, 1025}, 0},
      {1024, S::kColor, colour, {1014}, -1},  // starting again forgets the tool
      {1030, S::kColor, colour, {1014, 1030}, 2},
      {1013, S::kRedEye, tools + QSet<int>{1031}, {1014, 1031}, -1},
      {1002, S::kEditor, editor, {1014}, -1},  // kept: the tools go, the editor stays
      {1024, S::kColor, colour, {1014}, -1},
      {1003, S::kThumbnails, always + QSet<int>{1017}, {}, -1},
  };
  for (const Step &step : steps) {
    SCOPED_TRACE(step.command);
    if (step.command) form->OnCommand(step.command);
    QSet<int> pressable;
    for (int id : Visible())
      if (form->Control(id)->isEnabled()) pressable.insert(id);
    EXPECT_EQ(form->CurrentScreen(), step.screen);
    EXPECT_EQ(Visible(), step.shown);
    EXPECT_EQ(pressable, step.shown - step.disabled);
    EXPECT_EQ(form->ColorTool(), step.tool);
    EXPECT_EQ(form->GetThumbView()->isVisible(), step.screen == S::kThumbnails);
    EXPECT_EQ(form->GetImageView()->isVisible(), step.screen != S::kThumbnails);
  }
  EXPECT_TRUE(prompt.messages.isEmpty());
}

TEST_F(Form, RefusalsTellWhyAndChangeNothing) {
  const QString edit = "Please select an image that you would like to edit";
  Refuses(1011, edit);
  EXPECT_EQ(Help(), LoadKorvelString(1007));  // the help changes all the same
  EXPECT_EQ(Visible(), kThumbnailMode);
  Refuses(1022, edit);
  Refuses(1017, "Please select an image that you would like to remove from your work area");

  Add(641, 480);
  Add(640, 481);
  Add(640, 480);
  doc->SetCurrentIndex(0);
  doc->SetSelection({0, 2});
  Refuses(1012, "Please select only one image that you would like to edit");
  Refuses(32772, "Please select only one image that you would like to remove from your work area");

  doc->SetSelection({});
  for (int index : {0, 1}) {
    const QString help = Help();
    doc->SetCurrentIndex(index);
    Refuses(1024, "Color correction is not supported for images larger than 640x480");
    EXPECT_EQ(Help(), help);  // not even the help changes
  }
  doc->SetCurrentIndex(2);
  prompt.messages.clear();
  form->OnCommand(1024);
  EXPECT_TRUE(prompt.messages.isEmpty());
  EXPECT_EQ(form->GetImageView()->Mode(), "COLORCORRECTION");
  form->OnCommand(1033);
  ASSERT_EQ(doc->EditMode(), 0);

  // A photo whose file went after it opened is refused as opening refuses it.
  const std::string gonePath = testutil::TempPath("gone.bmp");
  ASSERT_EQ(testutil::WritePicture(gonePath, RasFormatBmp, RasModelRgb, testutil::Pattern(6, 4, 3)),
            RasOk);
  const QString gone = QString::fromStdString(gonePath);
  doc->AddPath(gone, 72.0f, CDib());
  ASSERT_TRUE(QFile::remove(gone));
  doc->SetCurrentIndex(doc->Count() - 1);
  for (int command : {1012, 1022, 1011, 1024})
    Refuses(command, "Cannot open file " + gone);
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

TEST_F(Form, ZoomStepsAndLargePhotosStartFitted) {
  Add(645, 400);
  Add(644, 452);
  Add(2000, 1500);
  doc->SetCurrentIndex(0);
  form->OnCommand(32778);
  EXPECT_EQ(form->ZoomCombo()->currentText(), "Fit");
  EXPECT_EQ(ShownWidth(), 645);
  form->OnCommand(1008);  // from Fit (here 100%) out to the step below
  EXPECT_EQ(Zoom(), 75);
  EXPECT_EQ(form->GetImageView()->DrawnSize(), QSize(483, 300));
  form->OnCommand(1003);
  doc->SetCurrentIndex(1);
  form->OnCommand(32778);
  EXPECT_EQ(Zoom(), 100);
  EXPECT_EQ(ShownWidth(), 644);
  // In, past the largest step, then out past the smallest.
  const std::tuple<int, int, int, int, int> steps[] = {{1007, 5, 800, 644 * 8, 1019},
                                                       {1008, 8, 25, 161, 1020}};
  for (auto [command, times, zoom, width, help] : steps) {
    for (int i = 0; i < times; ++i)
      form->OnCommand(command);
    EXPECT_EQ(Zoom(), zoom);
    EXPECT_EQ(Help(), LoadKorvelString(help));
    EXPECT_EQ(ShownWidth(), width);
  }
  EXPECT_FALSE(form->GetImageView()->Changed());  // zooming is not an edit
  EXPECT_EQ(form->GetImageView()->CurrentImage()->Width(), 644u);

  // Fit is about 30% for this photo: the steps go on from there either way.
  form->OnCommand(1003);
  doc->SetCurrentIndex(2);
  for (const auto &[command, zoom] : {std::pair{1007, 50}, std::pair{1008, 25}}) {
    form->OnCommand(32778);
    ASSERT_EQ(form->ZoomCombo()->currentText(), "Fit");
    EXPECT_EQ(form->GetImageView()->DrawnSize(), QSize(604, 453));
    form->OnCommand(command);
    EXPECT_EQ(Zoom(), zoom);
    form->OnCommand(1003);
  }
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
  ExpectThumbnailMode();
  EXPECT_EQ(doc->ImageAt(0).Width(), 20u);  // kept: the work area has the turned photo
  EXPECT_EQ(doc->UnsavedAt(0), 1);
  EXPECT_EQ(doc->PathAt(0), "/a/photo.jpg");

  // Undo is a single-level toggle.
  form->OnCommand(32778);
  form->OnCommand(1012);
  form->OnCommand(1005);
  form->OnCommand(1018);
  EXPECT_EQ(ShownWidth(), 20);
  form->OnCommand(1018);
  form->OnCommand(1002);  // keep what the second undo brought back
  EXPECT_EQ(doc->ImageAt(0).Width(), 30u);
  EXPECT_FALSE(form->GetImageView()->Changed());
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

TEST_F(Form, ClosingTheWindowAsksToKeepAnOpenEditFirst) {
  Add(30, 20, "/a/photo.jpg");
  doc->SetCurrentIndex(0);
  form->OnCommand(1012);
  form->OnCommand(1006);
  const QString question = "The image has changed. Do you want to keep these changes?";
  const KorvelPrompt::SavePhotoAnswer escape;
  prompt.answers = {KorvelPrompt::IDCANCEL, KorvelPrompt::IDYES};
  prompt.savePhoto = {escape};
  EXPECT_FALSE(app.MainFrame()->close());  // cancelled: nothing else is asked
  EXPECT_EQ(prompt.messages, QStringList{question});
  EXPECT_TRUE(prompt.savePhotoNames.isEmpty());
  EXPECT_FALSE(app.MainFrame()->close());  // kept, then asked about as unsaved
  EXPECT_EQ(prompt.messages, QStringList(2, question));
  EXPECT_EQ(prompt.savePhotoNames, QStringList{"photo.jpg"});
  EXPECT_EQ(doc->ImageAt(0).Width(), 20u);

  doc->ReplaceImage(0, doc->ImageAt(0), 0, QString());
  form->OnCommand(1006);
  prompt.answers = {KorvelPrompt::IDNO};  // dropped: the saved photo needs no question
  EXPECT_TRUE(app.MainFrame()->close());
  EXPECT_EQ(prompt.messages.size(), 3);
  EXPECT_EQ(prompt.savePhotoNames.size(), 1);
  EXPECT_EQ(doc->ImageAt(0).Width(), 20u);
}

TEST_F(Form, DroppedFilesOpenOneByOneInThumbnailMode) {
  const std::string goodPath = testutil::TempPath("drop.bmp"),
                    badPath = testutil::TempPath("x.txt");
  ASSERT_EQ(testutil::WritePicture(goodPath, RasFormatBmp, RasModelRgb, testutil::Pattern(6, 4, 3)),
            RasOk);
  testutil::WriteFile(badPath, {'n', 'o', 't', ' ', 'a', ' ', 'p', 'h', 'o', 't', 'o'});
  const QString good = QString::fromStdString(goodPath), bad = QString::fromStdString(badPath);
  QMimeData data;
  data.setUrls({QUrl::fromLocalFile(good), QUrl::fromLocalFile(bad), QUrl::fromLocalFile(good)});
  EXPECT_TRUE(TakesDrag(&data));  // a drop reaches the widget that accepted the drag's entry
  QDropEvent drop(QPointF(100, 100), Qt::CopyAction, &data, Qt::LeftButton, Qt::NoModifier);
  QCoreApplication::sendEvent(form, &drop);
  ASSERT_EQ(doc->Count(), 2);
  EXPECT_EQ(doc->PathAt(1), good);
  EXPECT_EQ(prompt.messages, QStringList{"Cannot open file " + bad});

  doc->SetCurrentIndex(0);  // in the editor, drops are not taken
  form->OnCommand(32778);
  EXPECT_FALSE(TakesDrag(&data));
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
