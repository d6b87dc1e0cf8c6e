// The main window from the keyboard and through a screen reader's eyes: the shortcuts
// press the same commands as the buttons, the arrows walk the thumbnails, every button
// is named and described, Tab follows the layout, and the command line.
#include <gtest/gtest.h>

#include <QAccessible>
#include <QApplication>
#include <QProcess>
#include <QTest>
#include <algorithm>
#include <iterator>

#include "app/formview.h"
#include "app/korvelapp.h"
#include "app/mainframe.h"
#include "photo/document.h"
#include "photo/strings.h"
#include "res/formcontrols.h"
#include "res/resources.h"
#include "tests/app/photos.h"
#include "tests/app/scriptedprompt.h"
#include "tests/app/windowtest.h"
#include "views/buttontextview.h"
#include "views/imageview.h"
#include "views/thumbview.h"

namespace {

class Keyboard : public MainWindowTest {
 protected:
  // A key pressed while the work area's current view has the focus.
  void Key(int key, Qt::KeyboardModifiers modifiers = Qt::NoModifier) {
    QWidget *view = doc->EditMode() ? static_cast<QWidget *>(form->GetImageView())
                                    : static_cast<QWidget *>(form->GetThumbView());
    QTest::keyClick(view, Qt::Key(key), modifiers);
  }
  void Add(int count, int width = 40, int height = 20) {
    for (int i = 0; i < count; ++i)
      doc->AddImage(MakePhoto(width, height), 0, QStringLiteral("/p/%1.jpg").arg(i));
  }
  QString Help() const { return form->GetButtonTextView()->Text(); }
  int Zoom() const { return form->ZoomCombo()->currentData().toInt(); }
  uint32_t ShownWidth() const { return form->GetImageView()->CurrentImage()->Width(); }
};

TEST_F(Keyboard, ArrowsWalkTheThumbnailsAndEnterOpensTheSelectedOne) {
  Add(7);  // two rows: five, then two
  doc->SetSelection({2, 3});
  // Key, and the current photo after it: the first arrow picks the first photo, a row
  // is five, down onto a short row lands on the last photo, edges hold.
  const std::pair<int, int> walk[] = {
      {Qt::Key_Right, 0}, {Qt::Key_Left, 0},  {Qt::Key_Up, 0},    {Qt::Key_Right, 1},
      {Qt::Key_Down, 6},  {Qt::Key_Down, 6},  {Qt::Key_Right, 6}, {Qt::Key_Up, 1},
      {Qt::Key_Right, 2}, {Qt::Key_Right, 3}, {Qt::Key_Down, 6},  {Qt::Key_Left, 5},
  };
  for (const auto &[key, current] : walk) {
    Key(key);
    EXPECT_EQ(doc->CurrentIndex(), current) << QKeySequence(key).toString().toStdString();
  }
  EXPECT_TRUE(doc->Selection().empty()) << "moving drops a ctrl-click selection";
  Key(Qt::Key_Right, Qt::ShiftModifier);
  EXPECT_EQ(doc->CurrentIndex(), 5) << "shifted arrows are not the plain ones";

  Key(Qt::Key_Return);
  ASSERT_EQ(doc->EditMode(), 1);
  EXPECT_EQ(Help(), LoadKorvelString(1021));
  Key(Qt::Key_Left);
  EXPECT_EQ(doc->CurrentIndex(), 5) << "arrows belong to the editor while it shows";
  Key(Qt::Key_Escape);
  EXPECT_EQ(doc->EditMode(), 0);
  EXPECT_EQ(Help(), LoadKorvelString(1000));
  EXPECT_TRUE(prompt.messages.isEmpty());

  doc->SetCurrentIndex(-1);
  Key(Qt::Key_Enter, Qt::KeypadModifier);
  EXPECT_EQ(prompt.messages, QStringList{"Please select an image that you would like to edit"});
  EXPECT_EQ(doc->EditMode(), 0);
}

TEST_F(Keyboard, EscapeAsksAboutAChangedPhotoAsTheBackButtonDoes) {
  Add(1);
  doc->SetCurrentIndex(0);
  for (int leave : {0, 1}) {  // the ThumbNails button, then Escape
    SCOPED_TRACE(leave ? "escape" : "button");
    prompt.messages.clear();
    form->OnCommand(1012);
    form->OnCommand(1006);
    prompt.answers = {KorvelPrompt::IDCANCEL, KorvelPrompt::IDNO};
    for (int attempt = 0; attempt < 2; ++attempt)
      leave ? Key(Qt::Key_Escape) : form->OnCommand(1033);
    EXPECT_EQ(prompt.messages,
              QStringList(2, "The image has changed. Do you want to keep these changes?"));
    EXPECT_EQ(doc->EditMode(), 0) << "cancel stays, no leaves";
    EXPECT_EQ(doc->ImageAt(0).Width(), 40u) << "the turn was not kept";
  }
  Key(Qt::Key_Escape);
  EXPECT_EQ(prompt.messages.size(), 2) << "escape in the thumbnails does nothing";
}

TEST_F(Keyboard, ShortcutsPressTheButtonsThatAreShowing) {
  Add(1);
  doc->SetCurrentIndex(0);
  Key(Qt::Key_P, Qt::ControlModifier);
  EXPECT_EQ(Help(), LoadKorvelString(1004));
  Key(Qt::Key_O, Qt::ControlModifier);
  EXPECT_EQ(prompt.openFilters.size(), 1);
  Key(Qt::Key_Plus, Qt::ShiftModifier);
  Key(Qt::Key_Z, Qt::ControlModifier);
  EXPECT_EQ(Help(), LoadKorvelString(1004)) << "no zoom or undo in the thumbnails";

  Key(Qt::Key_Return);
  // Key, modifiers, and the zoom step after it.
  const std::tuple<int, Qt::KeyboardModifiers, int> zooms[] = {
      {Qt::Key_Plus, Qt::ShiftModifier, 200},    {Qt::Key_Plus, Qt::KeypadModifier, 400},
      {Qt::Key_Equal, Qt::ControlModifier, 800}, {Qt::Key_Plus, Qt::NoModifier, 800},
      {Qt::Key_Minus, Qt::NoModifier, 400},      {Qt::Key_Minus, Qt::ControlModifier, 200},
      {Qt::Key_Minus, Qt::AltModifier, 200},
  };
  for (const auto &[key, modifiers, zoom] : zooms) {
    Key(key, modifiers);
    EXPECT_EQ(Zoom(), zoom) << key << " " << modifiers;
  }
  EXPECT_EQ(Help(), LoadKorvelString(1020));
  Key(Qt::Key_O, Qt::ControlModifier);
  EXPECT_EQ(prompt.openFilters.size(), 1) << "no opening while editing";

  form->OnCommand(1012);
  form->OnCommand(1005);
  EXPECT_EQ(ShownWidth(), 20u);
  Key(Qt::Key_Z, Qt::ControlModifier);
  EXPECT_EQ(ShownWidth(), 40u);
  Key(Qt::Key_S, Qt::ControlModifier);
  EXPECT_EQ(Help(), LoadKorvelString(1002));
}

TEST_F(Keyboard, ControlQAndControlWCloseThroughTheSavePhotoQuestion) {
  Add(1);
  doc->ReplaceImage(0, doc->ImageAt(0), 1, QString());
  for (int key : {Qt::Key_Q, Qt::Key_W}) {
    prompt.savePhoto = {KorvelPrompt::SavePhotoAnswer{}};  // closed without a button
    Key(key, Qt::ControlModifier);
    EXPECT_TRUE(app.MainFrame()->isVisible());
  }
  EXPECT_EQ(prompt.savePhotoNames, QStringList(2, "0.jpg"));
  prompt.savePhoto = {KorvelPrompt::SavePhotoAnswer{KorvelPrompt::IDOK, "NO"}};
  Key(Qt::Key_W, Qt::ControlModifier);
  EXPECT_FALSE(app.MainFrame()->isVisible());
}

TEST_F(Keyboard, EveryButtonIsNamedAndDescribedByItsHelpLine) {
  // Id, the name a screen reader says, and the help line it describes itself with.
  const std::tuple<int, const char *, int> described[] = {
      {1014, "DownLoad Images", 1001},
      {1023, "Projects", 1003},
      {1037, "Share Photos", 1018},
      {1007, "Zoom In", 1019},
      {1008, "Zoom Out", 1020},
      {1024, "Color Correction", 1008},
      {1030, "Sky", 1011},
      {1033, "ThumbNails", 1005},
  };
  for (const auto &[id, name, help] : described) {
    QAccessibleInterface *button = QAccessible::queryAccessibleInterface(form->Control(id));
    ASSERT_TRUE(button) << id;
    EXPECT_EQ(button->text(QAccessible::Name), QString::fromUtf8(name)) << id;
    EXPECT_EQ(button->text(QAccessible::Description), LoadKorvelString(help)) << id;
  }
  for (int i = 0; i < kFormControlCount; ++i) {
    if (kFormControls[i].kind != FormKind::Skinned) continue;
    const QWidget *button = form->Control(kFormControls[i].id);
    EXPECT_FALSE(button->accessibleName().isEmpty()) << kFormControls[i].id;
    EXPECT_FALSE(button->accessibleDescription().isEmpty()) << kFormControls[i].id;
  }
}

TEST_F(Keyboard, TabFollowsTheLayout) {
  app.MainFrame()->activateWindow();
  ASSERT_TRUE(QTest::qWaitForWindowActive(app.MainFrame()));
  // The order in each mode, from the first button round to it again.
  const auto walk = [&](std::initializer_list<QWidget *> expected) {
    QWidget *first = *expected.begin();
    first->setFocus(Qt::TabFocusReason);
    std::vector<QWidget *> seen{QApplication::focusWidget()};
    for (size_t i = 0; i < expected.size(); ++i) {  // at least once round
      QTest::keyClick(QApplication::focusWidget(), Qt::Key_Tab);
      seen.push_back(QApplication::focusWidget());
    }
    // Controls that take no focus from Tab are passed over wherever they stand.
    std::vector<QWidget *> want;
    std::copy_if(expected.begin(), expected.end(), std::back_inserter(want),
                 [](const QWidget *w) { return w->focusPolicy() & Qt::TabFocus; });
    seen.resize(want.size() + 1);
    want.push_back(first);
    EXPECT_EQ(seen, want);
  };
  const auto c = [&](int id) { return form->Control(id); };
  QWidget *pane = form->GetButtonTextView();
  walk({c(1014), c(1015), c(1037), c(1023), c(1032), c(1017), form->GetThumbView(), pane, c(1011),
        c(1024), c(1012), c(1013), c(1020)});
  Add(1);
  doc->SetCurrentIndex(0);
  form->OnCommand(1024);  // the colour tools on the right
  walk({c(1015), c(1037), c(1023), c(1032), c(1033), form->GetImageView(),
        c(1030), c(1025), c(1029), c(1026), c(1018), c(1002),
        c(1003), pane,    c(1007), c(1008), c(1011), c(1024),
        c(1012), c(1013), c(1020)});
}

TEST(CommandLine, TheToolAnswersHelpAndVersionAndRefusesWhatItDoesNotKnow) {
  // Arguments, exit code, and the start of what goes to standard output.
  const std::tuple<QStringList, int, QString> runs[] = {
      {{"--help"}, 0, "Usage: korvel-raster COMMAND"},
      {{"--version"}, 0, "korvel-raster " + KorvelVersion() + "\n"},
      {{}, 2, ""},
      {{"--bogus"}, 2, ""},
      {{"rotate", "sideways", "a.bmp", "b.bmp"}, 2, ""},
  };
  for (const auto &[arguments, code, output] : runs) {
    QProcess tool;
    tool.start(QStringLiteral(KORVEL_TOOL_PATH), arguments);
    ASSERT_TRUE(tool.waitForFinished(10000));
    EXPECT_EQ(tool.exitCode(), code) << arguments.join(' ').toStdString();
    const QString out = QString::fromUtf8(tool.readAllStandardOutput());
    EXPECT_TRUE(output.isEmpty() ? out.isEmpty() : out.startsWith(output)) << out.toStdString();
  }
}

}  // namespace
