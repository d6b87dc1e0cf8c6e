// Several photos at once: the command line's words, the open dialog's list,
// files and folders dropped together, and the progress that can stop a
// batch while keeping what it opened.
#include <gtest/gtest.h>

#include <QCoreApplication>
#include <QDir>
#include <QDragEnterEvent>
#include <QDropEvent>
#include <QMimeData>
#include <QProgressDialog>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QTimer>

#include "app/formview.h"
#include "app/korvelapp.h"
#include "app/mainframe.h"
#include "app/openphotos.h"
#include "photo/document.h"
#include "photo/photofiles.h"
#include "tests/app/scriptedprompt.h"
#include "tests/app/windowtest.h"
#include "tests/raster/testutil.h"

namespace {

using Line = CKorvelApp::CommandLine;

// A BMP photo `width` pixels wide at `path`; the widths tell entries apart.
QString WritePhoto(const QString &path, int width) {
  EXPECT_EQ(testutil::WritePicture(path.toStdString(), RasFormatBmp, RasModelRgb,
                                   testutil::Pattern(width, 3, 3)),
            RasOk);
  return path;
}

QStringList Paths(const CKorvelAppDoc *doc) {
  QStringList paths;
  for (int i = 0; i < doc->Count(); ++i)
    paths << doc->PathAt(i);
  return paths;
}

std::vector<uint32_t> Widths(const CKorvelAppDoc *doc) {
  std::vector<uint32_t> widths;
  for (int i = 0; i < doc->Count(); ++i)
    widths.push_back(doc->ImageAt(i).Width());
  return widths;
}

TEST(CommandLine, OptionsComeFirstAndEveryWordIsAPhoto) {
  // Arguments after the program's name, the action and the paths; none of
  // these names a file, so no words are joined.
  struct Case {
    QStringList arguments;
    Line::Action action;
    QStringList paths;
  };
  const Case lines[] = {
      {{}, Line::kRun, {}},
      {{"/photos/a.jpg", "/photos/b.jpg", "c.bmp"},
       Line::kRun,
       {"/photos/a.jpg", "/photos/b.jpg", "c.bmp"}},
      {{"/photos/My", "Trip.jpg"}, Line::kRun, {"/photos/My", "Trip.jpg"}},
      {{"--help"}, Line::kHelp, {}},
      {{"photo.jpg", "-h"}, Line::kHelp, {}},
      {{"--version"}, Line::kVersion, {}},
      {{"--bogus", "--help"}, Line::kHelp, {}},
      {{"--bogus"}, Line::kUsageError, {}},
      {{"--", "--help"}, Line::kRun, {"--help"}},
      {{"a.jpg", "--", "-x", "y"}, Line::kRun, {"a.jpg", "-x", "y"}},
      {{"-"}, Line::kRun, {"-"}},
  };
  for (const auto &[arguments, action, paths] : lines) {
    const Line line = CKorvelApp::ParseCommandLine(QStringList{"korvelapp"} + arguments);
    EXPECT_EQ(line.action, action) << arguments.join(' ').toStdString();
    EXPECT_EQ(line.paths, paths) << arguments.join(' ').toStdString();
  }
  EXPECT_EQ(CKorvelApp::ParseCommandLine({"korvelapp", "-z"}).problem, "unknown option '-z'");
  // Only a long option is refused before Qt has taken its own single-dash ones.
  EXPECT_FALSE(CKorvelApp::ParseCommandLine({"korvelapp", "-z"}).longOption);
  EXPECT_TRUE(CKorvelApp::ParseCommandLine({"korvelapp", "--bogus"}).longOption);
  EXPECT_TRUE(CKorvelApp::Usage().startsWith("Usage: korvelapp [OPTION]... [PHOTO]...\n"));
  EXPECT_TRUE(QRegularExpression("^KorvelApp [0-9]+\\.[0-9]+$")
                  .match(CKorvelApp::VersionLine())
                  .hasMatch());
  // A command line that does not ask to run starts nothing, and opens no photo.
  ScriptedPrompt prompt;
  CKorvelApp app;
  EXPECT_FALSE(app.InitInstance({"korvelapp", "--help"}));
  EXPECT_EQ(app.MainFrame(), nullptr);
}

TEST(CommandLine, WordsAreOnePathOnlyWhenTheyNameNothingAlone) {
  QTemporaryDir dir;
  const QString spaced = WritePhoto(dir.filePath("my holiday.bmp"), 4);
  const QStringList words = spaced.split(' ');
  ASSERT_EQ(words.size(), 2);
  EXPECT_EQ(CKorvelApp::ParseCommandLine(QStringList{"korvelapp"} + words).paths,
            QStringList{spaced});
  EXPECT_EQ(CKorvelApp::ParseCommandLine(QStringList{"korvelapp", "--"} + words).paths,
            QStringList{spaced});
  // Once one of the words is a file of its own, every word is a path.
  WritePhoto(words[0], 5);
  EXPECT_EQ(CKorvelApp::ParseCommandLine(QStringList{"korvelapp"} + words).paths, words);
  // A single word is never split or joined.
  EXPECT_EQ(CKorvelApp::ParseCommandLine({"korvelapp", spaced}).paths, QStringList{spaced});
}

TEST(CommandLine, OpensEveryPhotoInOrderAndPassesOverFailuresQuietly) {
  ScriptedPrompt prompt;
  QTemporaryDir dir;
  const QString c = WritePhoto(dir.filePath("c.bmp"), 3), a = WritePhoto(dir.filePath("a.bmp"), 1),
                b = WritePhoto(dir.filePath("b b.bmp"), 2);
  CKorvelApp app;
  ASSERT_TRUE(app.InitInstance({"korvelapp", c, "/no/such/photo.jpg", a, b}));
  EXPECT_EQ(Paths(app.Document()), (QStringList{c, a, b}));
  EXPECT_EQ(Widths(app.Document()), (std::vector<uint32_t>{3, 1, 2}));
  EXPECT_TRUE(prompt.messages.isEmpty());
  // A folder on the command line opens the photos in it.
  CKorvelApp folder;
  ASSERT_TRUE(folder.InitInstance({"korvelapp", dir.path()}));
  EXPECT_EQ(Paths(folder.Document()), (QStringList{a, b, c}));
  app.MainFrame()->close();
  folder.MainFrame()->close();
}

TEST(PhotoFiles, FoldersGiveTheirPhotosSortedByNameAndNothingElse) {
  QTemporaryDir dir;
  const QDir d(dir.path());
  const QString b = WritePhoto(d.filePath("B.bmp"), 2), a = WritePhoto(d.filePath("A.bmp"), 1),
                z = WritePhoto(d.filePath("z.bmp"), 3);
  testutil::WriteFile(d.filePath("notes.txt").toStdString(), {'n', 'o', 't', 'e', 's'});
  testutil::WriteFile(d.filePath("fake.jpg").toStdString(), {'n', 'o', 't'});
  WritePhoto(d.filePath(".hidden.bmp"), 4);
  ASSERT_TRUE(d.mkdir("inner"));
  WritePhoto(d.filePath("inner/deeper.bmp"), 5);
  EXPECT_EQ(PhotosInFolder(dir.path()), (QStringList{a, b, z}));
  EXPECT_TRUE(PhotosInFolder(d.filePath("absent")).isEmpty());
  // Files stay where they are in the list; folders expand in place.
  const QString loose = d.filePath("inner/deeper.bmp");
  EXPECT_EQ(ExpandPhotoFolders({loose, dir.path(), "/no/such.jpg"}),
            (QStringList{loose, a, b, z, "/no/such.jpg"}));
}

TEST(PhotoFiles, ABatchStoppedByItsProgressKeepsWhatItOpened) {
  QTemporaryDir dir;
  const QStringList paths = {WritePhoto(dir.filePath("1.bmp"), 1), dir.filePath("missing.bmp"),
                             WritePhoto(dir.filePath("3.bmp"), 3),
                             WritePhoto(dir.filePath("4.bmp"), 4)};
  CKorvelAppDoc doc;
  std::vector<std::pair<int, int>> calls;
  const OpenBatch whole = OpenPhotoFiles(&doc, paths, [&](int done, int total) {
    calls.emplace_back(done, total);
    return true;
  });
  EXPECT_EQ(calls, (std::vector<std::pair<int, int>>{{1, 4}, {2, 4}, {3, 4}, {4, 4}}));
  EXPECT_EQ(whole.opened, 3);
  EXPECT_EQ(whole.failed, QStringList{paths[1]});
  EXPECT_FALSE(whole.stopped);
  EXPECT_EQ(Widths(&doc), (std::vector<uint32_t>{1, 3, 4}));

  CKorvelAppDoc stopped;
  const OpenBatch first = OpenPhotoFiles(&stopped, paths, [](int done, int) { return done < 1; });
  EXPECT_EQ(first.opened, 1);
  EXPECT_TRUE(first.stopped);
  EXPECT_EQ(Paths(&stopped), QStringList{paths[0]});
  // Asked to stop only at the end, nothing was left out.
  CKorvelAppDoc last;
  EXPECT_FALSE(OpenPhotoFiles(&last, paths.mid(0, 1), [](int, int) { return false; }).stopped);
  EXPECT_EQ(last.Count(), 1);
}

class OpenMany : public MainWindowTest {
 protected:
  void Drop(const QStringList &paths) {
    QMimeData data;
    QList<QUrl> urls;
    for (const QString &path : paths)
      urls << QUrl::fromLocalFile(path);
    data.setUrls(urls);
    // A drop reaches only the widget that took the drag's entry.
    QDragEnterEvent enter(QPoint(100, 100), Qt::CopyAction, &data, Qt::LeftButton, Qt::NoModifier);
    QCoreApplication::sendEvent(form, &enter);
    ASSERT_TRUE(enter.isAccepted());
    QDropEvent drop(QPointF(100, 100), Qt::CopyAction, &data, Qt::LeftButton, Qt::NoModifier);
    QCoreApplication::sendEvent(form, &drop);
    EXPECT_TRUE(drop.isAccepted());
  }
  QTemporaryDir dir;
};

TEST_F(OpenMany, ADropOfSeveralFilesOpensThemInTheOrderDropped) {
  const QString c = WritePhoto(dir.filePath("c.bmp"), 3), a = WritePhoto(dir.filePath("a.bmp"), 1),
                b = WritePhoto(dir.filePath("b.bmp"), 2);
  Drop({c, a, b});
  EXPECT_EQ(Paths(doc), (QStringList{c, a, b}));
  EXPECT_EQ(Widths(doc), (std::vector<uint32_t>{3, 1, 2}));
  EXPECT_TRUE(prompt.messages.isEmpty());
}

TEST_F(OpenMany, ADroppedFolderOpensItsPhotosSortedBesideLooseFiles) {
  QTemporaryDir other;
  const QString loose = WritePhoto(other.filePath("loose.bmp"), 9);
  const QString y = WritePhoto(dir.filePath("y.bmp"), 2), x = WritePhoto(dir.filePath("x.bmp"), 1);
  testutil::WriteFile(dir.filePath("readme.txt").toStdString(), {'h', 'i'});
  const QString bad = other.filePath("bad.jpg");
  testutil::WriteFile(bad.toStdString(), {'n', 'o'});
  Drop({loose, dir.path(), bad});
  EXPECT_EQ(Paths(doc), (QStringList{loose, x, y}));
  // A file dropped by name is reported; a folder's other files are not photos
  // the user named, and pass quietly.
  EXPECT_EQ(prompt.messages, QStringList{"Cannot open file " + bad});
}

TEST_F(OpenMany, TheOpenDialogTakesSeveralFilesAndOpensThemInOrder) {
  const QString b = WritePhoto(dir.filePath("b.bmp"), 2), a = WritePhoto(dir.filePath("a.bmp"), 1);
  const QString missing = dir.filePath("gone.bmp");
  prompt.openFileLists = {KorvelPrompt::FilesAnswer{true, {b, missing, a}, 1},
                          KorvelPrompt::FilesAnswer{}};
  form->OnOpenPhoto();
  EXPECT_EQ(prompt.openManyAsked, 1);
  EXPECT_EQ(Paths(doc), (QStringList{b, a}));
  EXPECT_EQ(prompt.messages, QStringList{"Cannot open file " + missing});
  form->OnOpenPhoto();  // cancelled: nothing opens, nothing is said
  EXPECT_EQ(doc->Count(), 2);
  EXPECT_EQ(prompt.messages.size(), 1);
}

TEST_F(OpenMany, CancellingTheProgressKeepsThePhotosAlreadyOpened) {
  const QStringList paths = {WritePhoto(dir.filePath("1.bmp"), 1),
                             WritePhoto(dir.filePath("2.bmp"), 2),
                             WritePhoto(dir.filePath("3.bmp"), 3)};
  // The user presses Cancel as soon as the progress exists, which is once
  // the first photo is in.
  int cancelled = 0;
  QTimer press;
  press.setInterval(0);
  QObject::connect(&press, &QTimer::timeout, form, [&] {
    if (auto *progress = app.MainFrame()->findChild<QProgressDialog *>()) {
      progress->cancel();
      ++cancelled;
      press.stop();
    }
  });
  press.start();
  EXPECT_EQ(OpenPhotos(doc, paths, app.MainFrame(), OpenReport::kShow), 1);
  EXPECT_EQ(cancelled, 1);
  EXPECT_EQ(Paths(doc), QStringList{paths[0]});
  EXPECT_FALSE(OpeningPhotos());
  EXPECT_EQ(app.MainFrame()->findChild<QProgressDialog *>(), nullptr);
  // The next batch starts afresh.
  EXPECT_EQ(OpenPhotos(doc, paths.mid(1), app.MainFrame(), OpenReport::kShow), 2);
  EXPECT_EQ(Paths(doc), paths);
}

TEST(OpenProgress, ShowsOnlyForSeveralFilesAndStopsOnceCancelled) {
  QWidget window;
  COpenProgress single(&window);
  EXPECT_TRUE(single.Step(1, 1));
  EXPECT_EQ(window.findChild<QProgressDialog *>(), nullptr);

  COpenProgress progress(&window);
  EXPECT_TRUE(progress.Step(1, 3));
  auto *dialog = window.findChild<QProgressDialog *>();
  ASSERT_NE(dialog, nullptr);
  EXPECT_EQ(dialog->maximum(), 3);
  EXPECT_EQ(dialog->value(), 1);
  EXPECT_EQ(dialog->minimumDuration(), COpenProgress::kShowAfterMs);
  EXPECT_EQ(dialog->windowModality(), Qt::WindowModal);
  EXPECT_EQ(dialog->labelText(), "Opening photos: 1 of 3");
  dialog->cancel();
  EXPECT_FALSE(progress.Step(2, 3));
}

}  // namespace
