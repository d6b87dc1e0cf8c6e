// The outside editor: finding its desktop entry, reading the entry's command,
// and the hand-off with its messages and the files it leaves.
#include "share/editor.h"
#include "photo/settings.h"
#include "share/desktopentry.h"
#include "tests/share/sharetest.h"

namespace {

using Editor = ShareTest;

TEST(DesktopExec, WordsQuotingAndFieldCodes) {
  // Quotes keep blanks, escapes inside them, %% is a percent sign, the icon,
  // name and location codes go, and the file goes where the field code was,
  // or last.
  const struct {
    const char *exec, *program, *string;
    QStringList arguments;
  } cases[] = {{"gimp-2.10 %U", "gimp-2.10", "gimp-2.10", {"/t/f.jpg"}},
               {R"("/opt/My Editor/bin/edit" --title "a \"b\" \$c" 50%% %i %c %k -x)",
                "/opt/My Editor/bin/edit",
                R"("/opt/My Editor/bin/edit" --title "a \"b\" \$c" 50% -x)",
                {"--title", "a \"b\" $c", "50%", "-x", "/t/f.jpg"}},
               {"/usr/bin/flatpak run --file-forwarding org.gimp.GIMP @@u %U @@",
                "/usr/bin/flatpak",
                "/usr/bin/flatpak run --file-forwarding org.gimp.GIMP @@u @@",
                {"run", "--file-forwarding", "org.gimp.GIMP", "@@u", "/t/f.jpg", "@@"}}};
  for (const auto &c : cases) {
    SCOPED_TRACE(c.exec);
    const CDesktopCommand command = ParseExecLine(c.exec);
    EXPECT_EQ(command.program, c.program);
    EXPECT_EQ(command.ArgumentsWith("/t/f.jpg"), c.arguments);
    EXPECT_EQ(command.ToString(), c.string);
  }
  EXPECT_EQ(ParseExecLine(R"(edit %i -x)").fileArgument, -1);
  EXPECT_TRUE(ParseExecLine("   ").IsEmpty());
}

TEST_F(Editor, ServerPathFromTheDesktopEntries) {
  const QString sys = system.path(), user = home.path(), gimp = "org.gimp.GIMP.desktop";
  // Each step writes an entry (or removes the user's), then the path found.
  const struct {
    QString folder, id, exec, keys, path;
  } steps[] = {{"", "", "", "", ""},  // nothing installed
               {sys, "gimp.desktop", "gimp-old %U", "Name=Old\n", "gimp-old"},
               // the newer id first, in the user's folder before the system's
               {sys, gimp, "gimp-system %U", "", "gimp-system"},
               {user, gimp, "gimp-home --no-splash %F", "", "gimp-home --no-splash"},
               // hidden in the user's folder: the id is gone, the system's entry too
               {user, gimp, "gimp-home %F", "Hidden=true\n", "gimp-old"},
               {user, gimp, "", "", "gimp-system"},
               // a TryExec program that is missing
               {sys, gimp, "gimp %F", "TryExec=/nonexistent/gimp\n", "gimp-old"}};
  for (const auto &s : steps) {
    SCOPED_TRACE(s.path.toStdString());
    if (s.folder == user && s.exec.isEmpty())
      ASSERT_TRUE(QFile::remove(user + "/applications/" + gimp));
    else if (!s.folder.isEmpty())
      WriteEntry(s.folder, s.id, s.exec, s.keys);
    EXPECT_EQ(GetServerPath("PhotoDeluxe.Image"), s.path);
  }
  // The setting names other entries; other ProgIDs have none by default.
  WriteEntry(sys, "editor.desktop", "/opt/ed/bin/ed --edit %f");
  KorvelSettings()->setValue("editors/PhotoDeluxe.Image", "missing.desktop;editor.desktop");
  EXPECT_EQ(GetServerPath("PhotoDeluxe.Image"), "/opt/ed/bin/ed --edit");
  EXPECT_EQ(GetServerPath("Other.Image"), "");
  KorvelSettings()->setValue("editors/Other.Image", "gimp.desktop");
  EXPECT_EQ(GetServerPath("Other.Image"), "gimp-old");
}

TEST(EditorNames, TemporaryNameCutAtTheFirstDot) {
  EXPECT_EQ(EditorFileNameFor("/tmp/Zib1A2B.tmp"), "/tmp/Zib1A2B.jpg");
  EXPECT_EQ(EditorFileNameFor("/home/a.b/tmp/Zib1A2B.tmp"), "/home/a.jpg");
  EXPECT_EQ(EditorFileNameFor("/tmp/Zib1A2B"), "/tmp/Zib1A2B");
}

TEST_F(Editor, HandOffAndTheFilesLeftBehind) {
  Add("/photos/a.jpg", qRgb(10, 200, 90), 48, 32);
  doc->SetCurrentIndex(0);
  // Started with the JPEG, from the root folder; the JPEG and the empty .tmp
  // stay, and a second hand-off adds its own pair.
  WriteEntry(home.path(), "gimp.desktop", "/opt/gimp/bin/gimp --new %U");
  Run(1023);
  Run(1023);
  EXPECT_TRUE(prompt.messages.isEmpty());
  const QStringList tmps = Files(temp.path(), "Zib????.tmp");
  const QStringList jpgs = Files(temp.path(), "Zib????.jpg");
  ASSERT_EQ(tmps.size(), 2);
  ASSERT_EQ(jpgs.size(), 2);
  for (int i = 0; i < 2; ++i) {
    EXPECT_EQ(tmps[i].left(7), jpgs[i].left(7));
    EXPECT_EQ(QFileInfo(temp.path() + "/" + tmps[i]).size(), 0);
    ExpectJpeg(temp.path() + "/" + jpgs[i], {48, 32}, qRgb(10, 200, 90));
    EXPECT_TRUE(launcher.started.contains(
        QStringList{"/", "/opt/gimp/bin/gimp", "--new", temp.path() + "/" + jpgs[i]}));
  }
  EXPECT_EQ(launcher.started.size(), 2);

  // A temporary folder with a dot in its path: the JPEG is written where the
  // path is cut, beside that folder.
  const QString dotted = temp.path() + "/my.temp";
  ASSERT_TRUE(QDir().mkpath(dotted));
  {
    ScopedEnv tmp("TMPDIR", dotted.toUtf8());
    Run(1023);
  }
  EXPECT_EQ(Files(dotted, "*"), QStringList{Files(dotted, "Zib????.tmp").value(0, "none")});
  EXPECT_EQ(launcher.started.last(),
            (QStringList{"/", "/opt/gimp/bin/gimp", "--new", temp.path() + "/my.jpg"}));
  ExpectJpeg(temp.path() + "/my.jpg", {48, 32}, qRgb(10, 200, 90));
  {  // a temporary folder that is not there
    ScopedEnv tmp("TMPDIR", (temp.path() + "/gone").toUtf8());
    Run(1023);
  }
  EXPECT_EQ(prompt.messages.last(),
            "Unable to save temporary file. Please check to see if you have enough disk space");
  EXPECT_EQ(launcher.started.size(), 3);
}

}  // namespace
