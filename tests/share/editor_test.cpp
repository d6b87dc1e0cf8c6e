// The outside editor: finding its desktop entry, reading the entry's
// command, and the hand-off with its messages and the files it leaves.
#include <QImage>

#include "app/strings.h"
#include "share/desktopentry.h"
#include "share/editor.h"
#include "tests/share/sharetest.h"

namespace {

class Editor : public ShareTest {
 protected:
  void SetUp() override {
    ShareTest::SetUp();
    ASSERT_TRUE(home.isValid() && system.isValid());
    QDir().mkpath(home.path() + "/applications");
    QDir().mkpath(system.path() + "/applications");
  }
  void TearDown() override {
    CKorvelApp::Settings()->remove("editors");
    ShareTest::TearDown();
  }
  static void WriteEntry(const QString &folder, const QString &id, const QString &body) {
    QFile file(folder + "/applications/" + id);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.write(body.toUtf8());
  }

  QTemporaryDir home, system;
  ScopedEnv dataHome{"XDG_DATA_HOME", home.path().toUtf8()};
  ScopedEnv dataDirs{"XDG_DATA_DIRS", ("/nonexistent:" + system.path()).toUtf8()};
};

TEST(DesktopExec, WordsQuotingAndFieldCodes) {
  CDesktopCommand c = ParseExecLine("gimp-2.10 %U");
  EXPECT_EQ(c.program, "gimp-2.10");
  EXPECT_TRUE(c.arguments.isEmpty());
  EXPECT_EQ(c.ArgumentsWith("/t/Zib1.jpg"), QStringList{"/t/Zib1.jpg"});
  EXPECT_EQ(c.ToString(), "gimp-2.10");

  // Quotes keep blanks, escapes inside them, %% is a percent sign, and the
  // icon, name and location codes go.
  c = ParseExecLine(R"("/opt/My Editor/bin/edit" --title "a \"b\" \$c" 50%% %i %c %k -x)");
  EXPECT_EQ(c.program, "/opt/My Editor/bin/edit");
  EXPECT_EQ(c.arguments, (QStringList{"--title", "a \"b\" $c", "50%", "-x"}));
  EXPECT_EQ(c.fileArgument, -1);
  EXPECT_EQ(c.ArgumentsWith("f.jpg").last(), "f.jpg");
  EXPECT_EQ(c.ToString(), R"("/opt/My Editor/bin/edit" --title "a \"b\" \$c" 50% -x)");

  // The file goes where the entry put its field code, between the markers of
  // a sandboxed launcher.
  c = ParseExecLine("/usr/bin/flatpak run --file-forwarding org.gimp.GIMP @@u %U @@");
  EXPECT_EQ(c.program, "/usr/bin/flatpak");
  EXPECT_EQ(c.ArgumentsWith("/t/p.jpg"),
            (QStringList{"run", "--file-forwarding", "org.gimp.GIMP", "@@u", "/t/p.jpg", "@@"}));
  EXPECT_TRUE(ParseExecLine("   ").IsEmpty());
}

TEST_F(Editor, ServerPathFromTheDesktopEntries) {
  // Nothing installed.
  EXPECT_EQ(GetServerPath("PhotoDeluxe.Image"), "");
  // The older id in the system folder.
  WriteEntry(system.path(), "gimp.desktop",
             "[Desktop Entry]\nType=Application\nName=Old\nExec=gimp-old %U\n");
  EXPECT_EQ(GetServerPath("PhotoDeluxe.Image"), "gimp-old");
  // The newer id is tried first, in the user's folder before the system's.
  WriteEntry(system.path(), "org.gimp.GIMP.desktop",
             "[Desktop Entry]\nType=Application\nExec=gimp-system %U\n");
  EXPECT_EQ(GetServerPath("PhotoDeluxe.Image"), "gimp-system");
  WriteEntry(home.path(), "org.gimp.GIMP.desktop",
             "[Desktop Action new]\nExec=wrong\n"
             "[Desktop Entry]\nType=Application\nExec=gimp-home --no-splash %F\n");
  EXPECT_EQ(GetServerPath("PhotoDeluxe.Image"), "gimp-home --no-splash");
  // A hidden entry in the user's folder takes the id away, the system's
  // entry of that id included; an entry whose TryExec program is missing
  // does not count either.
  WriteEntry(home.path(), "org.gimp.GIMP.desktop",
             "[Desktop Entry]\nType=Application\nHidden=true\nExec=gimp-home %F\n");
  EXPECT_EQ(GetServerPath("PhotoDeluxe.Image"), "gimp-old");
  ASSERT_TRUE(QFile::remove(home.path() + "/applications/org.gimp.GIMP.desktop"));
  EXPECT_EQ(GetServerPath("PhotoDeluxe.Image"), "gimp-system");
  WriteEntry(system.path(), "org.gimp.GIMP.desktop",
             "[Desktop Entry]\nType=Application\nTryExec=/nonexistent/gimp\nExec=gimp %F\n");
  EXPECT_EQ(GetServerPath("PhotoDeluxe.Image"), "gimp-old");
  // The setting names other entries; other ProgIDs have none by default.
  WriteEntry(system.path(), "editor.desktop",
             "[Desktop Entry]\nType=Application\nExec=/opt/ed/bin/ed --edit %f\n");
  CKorvelApp::Settings()->setValue("editors/PhotoDeluxe.Image", "missing.desktop;editor.desktop");
  EXPECT_EQ(GetServerPath("PhotoDeluxe.Image"), "/opt/ed/bin/ed --edit");
  EXPECT_EQ(GetServerPath("Other.Image"), "");
  CKorvelApp::Settings()->setValue("editors/Other.Image", "gimp.desktop");
  EXPECT_EQ(GetServerPath("Other.Image"), "gimp-old");
}

TEST_F(Editor, TemporaryNameCutAtTheFirstDot) {
  EXPECT_EQ(EditorFileNameFor("/tmp/Zib1A2B.tmp"), "/tmp/Zib1A2B.jpg");
  EXPECT_EQ(EditorFileNameFor("/home/a.b/tmp/Zib1A2B.tmp"), "/home/a.jpg");
  EXPECT_EQ(EditorFileNameFor("/tmp/Zib1A2B"), "/tmp/Zib1A2B");
}

TEST_F(Editor, HandOffMessagesAndFilesLeftBehind) {
  const QString onlyOne = "Please select only one image that you would like to send to PhotoDeluxe";
  auto projects = [&] {
    dialogs.projects.push_back({CShareDialogs::IDOK, "PrintHouse"});
    form->OnCommand(1023);
  };
  // No photo.
  projects();
  EXPECT_EQ(prompt.messages.last(), LoadKorvelString(1022));
  // Two selected.
  Add("/photos/a.jpg", qRgb(10, 200, 90), 48, 32);
  Add("/photos/b.jpg");
  doc->SetCurrentIndex(0);
  doc->Selection() = {0, 1};
  projects();
  EXPECT_EQ(prompt.messages.last(), onlyOne);
  // A photo without pixels.
  doc->Selection().clear();
  doc->AddImage(nullptr, 0, "/photos/empty.jpg");
  doc->SetCurrentIndex(2);
  projects();
  EXPECT_EQ(prompt.messages.last(), LoadKorvelString(1023));
  // No editor installed: nothing is written.
  doc->SetCurrentIndex(0);
  projects();
  EXPECT_EQ(prompt.messages.last(), LoadKorvelString(1024));
  EXPECT_TRUE(Files(temp.path(), "*").isEmpty());
  EXPECT_TRUE(launcher.programs.isEmpty());

  // The editor: started with the JPEG, from the root folder; both the JPEG
  // and the empty .tmp stay.
  WriteEntry(home.path(), "gimp.desktop",
             "[Desktop Entry]\nType=Application\nExec=/opt/gimp/bin/gimp --new %U\n");
  projects();
  EXPECT_EQ(prompt.messages.size(), 4);
  ASSERT_EQ(launcher.programs, QStringList{"/opt/gimp/bin/gimp"});
  const QStringList tmps = Files(temp.path(), "Zib????.tmp");
  const QStringList jpgs = Files(temp.path(), "Zib????.jpg");
  ASSERT_EQ(tmps.size(), 1);
  ASSERT_EQ(jpgs.size(), 1);
  EXPECT_EQ(tmps[0].left(7), jpgs[0].left(7));
  EXPECT_EQ(QFileInfo(temp.path() + "/" + tmps[0]).size(), 0);
  const QString jpg = temp.path() + "/" + jpgs[0];
  EXPECT_EQ(launcher.arguments[0], (QStringList{"--new", jpg}));
  EXPECT_EQ(launcher.folders[0], "/");
  const QImage sent(jpg, "JPEG");
  ASSERT_EQ(sent.size(), QSize(48, 32));
  EXPECT_NEAR(qGreen(sent.pixel(24, 16)), 200, 4);
  EXPECT_NEAR(qRed(sent.pixel(24, 16)), 10, 4);
  // A second hand-off adds its own pair.
  projects();
  EXPECT_EQ(Files(temp.path(), "Zib????.tmp").size(), 2);
  EXPECT_EQ(Files(temp.path(), "Zib????.jpg").size(), 2);

  // A temporary folder with a dot in its path: the JPEG is written where the
  // path is cut, beside that folder.
  const QString dotted = temp.path() + "/my.temp";
  ASSERT_TRUE(QDir().mkpath(dotted));
  {
    ScopedEnv tmp("TMPDIR", dotted.toUtf8());
    projects();
  }
  EXPECT_EQ(Files(dotted, "Zib????.tmp").size(), 1);
  EXPECT_TRUE(Files(dotted, "*.jpg").isEmpty());
  EXPECT_TRUE(QFile::exists(temp.path() + "/my.jpg"));
  EXPECT_EQ(launcher.arguments.last(), (QStringList{"--new", temp.path() + "/my.jpg"}));

  // A temporary folder that is not there.
  {
    ScopedEnv tmp("TMPDIR", (temp.path() + "/gone").toUtf8());
    projects();
  }
  EXPECT_EQ(prompt.messages.last(),
            "Unable to save temporary file. Please check to see if you have enough disk space");
  EXPECT_EQ(launcher.programs.size(), 3);
}

}  // namespace
