// The work area: parallel entries, names, folders, and camera pictures saved
// at once under the next free photo name.
#include <gtest/gtest.h>

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <utility>

#include "app/korvelapp.h"
#include "app/mainframe.h"
#include "photo/document.h"
#include "raster/ras.h"
#include "tests/app/photos.h"
#include "tests/app/scriptedprompt.h"

namespace {

void Touch(const QString &path) {
  QFile file(path);
  ASSERT_TRUE(file.open(QIODevice::WriteOnly));
}

TEST(Document, EntriesStayParallel) {
  CKorvelAppDoc doc;
  EXPECT_EQ(doc.ImageAt(0).Header(), nullptr);  // empty work area
  EXPECT_EQ(doc.UnsavedAt(0), 1);
  EXPECT_EQ(doc.PathAt(0), "");
  EXPECT_EQ(doc.FileNameAt(0), "");
  EXPECT_EQ(doc.CurrentIndex(), -1);
  EXPECT_EQ(doc.EditMode(), 0);

  doc.AddImage(MakePhoto(3, 2), 0, "c:\\a\\b\\photo.jpg");
  doc.AddImage(MakePhoto(5, 4), 1, "/home/me/second.bmp");
  doc.AddImage(MakePhoto(7, 6), 0, "bare.tif");
  EXPECT_EQ(doc.FileNameAt(0), "photo.jpg");
  EXPECT_EQ(doc.FileNameAt(1), "second.bmp");
  EXPECT_EQ(doc.FileNameAt(2), "bare.tif");

  // Replacing keeps the path unless a new one is given.
  doc.ReplaceImage(0, doc.ImageAt(2), 1, QString());
  EXPECT_EQ(doc.ImageAt(0).Handle(), doc.ImageAt(2).Handle());
  EXPECT_EQ(doc.PathAt(0), "c:\\a\\b\\photo.jpg");
  EXPECT_EQ(doc.UnsavedAt(0), 1);
  doc.ReplaceImage(0, doc.ImageAt(0), 0, "/new/name.jpg");
  EXPECT_EQ(doc.PathAt(0), "/new/name.jpg");

  doc.SetCurrentIndex(1);
  doc.Remove(1);
  ASSERT_EQ(doc.Count(), 2);
  EXPECT_EQ(doc.CurrentIndex(), -1);
  EXPECT_EQ(doc.PathAt(1), "bare.tif");
  EXPECT_EQ(doc.UnsavedAt(1), 0);
  EXPECT_EQ(doc.ImageAt(1).Width(), 7u);
}

// Every signal the work area sends, in order, as "name index".
class SignalLog {
 public:
  explicit SignalLog(CKorvelAppDoc *doc) {
    const auto with = [this](const char *name) {
      return [this, name](int index) { log_ << QStringLiteral("%1 %2").arg(name).arg(index); };
    };
    QObject::connect(doc, &CKorvelAppDoc::photoAdded, with("added"));
    QObject::connect(doc, &CKorvelAppDoc::photoReplaced, with("replaced"));
    QObject::connect(doc, &CKorvelAppDoc::photoRemoved, with("removed"));
    QObject::connect(doc, &CKorvelAppDoc::currentChanged, with("current"));
    QObject::connect(doc, &CKorvelAppDoc::editModeChanged, with("mode"));
    QObject::connect(doc, &CKorvelAppDoc::selectionChanged, [this] { log_ << "selection"; });
  }
  // What was sent since the last call.
  QStringList Take() { return std::exchange(log_, {}); }

 private:
  QStringList log_;
};

TEST(Document, EachChangeSaysSoOnceAndOnlyWhenSomethingChanged) {
  CKorvelAppDoc doc;
  SignalLog sent(&doc);
  doc.AddImage(MakePhoto(3, 2), 0, "/a/one.jpg");
  doc.AddImage(MakePhoto(3, 2), 0, "/a/two.jpg");
  doc.AddImage(MakePhoto(3, 2), 0, "/a/three.jpg");
  EXPECT_EQ(sent.Take(), (QStringList{"added 0", "added 1", "added 2"}));

  doc.ReplaceImage(1, doc.ImageAt(0), 1, QString());
  doc.ReplaceImage(3, doc.ImageAt(0), 1, QString());  // no such entry: nothing happens
  EXPECT_EQ(sent.Take(), QStringList{"replaced 1"});

  doc.SetCurrentIndex(2);
  doc.SetCurrentIndex(2);
  doc.SetEditMode(1);
  doc.SetEditMode(1);
  doc.SetEditMode(0);
  EXPECT_EQ(sent.Take(), (QStringList{"current 2", "mode 1", "mode 0"}));

  doc.SetSelection({0, 2});
  doc.SetSelection({0, 2});
  EXPECT_EQ(doc.Selection(), (std::vector<uint32_t>{0, 2}));
  doc.Selection().push_back(1);  // changed in place, then announced
  doc.NotifySelectionChanged();
  doc.SetSelection({});
  EXPECT_EQ(sent.Take(), (QStringList{"selection", "selection", "selection"}));

  // Removing forgets the current entry, and says so once the entry is gone.
  int currentSeen = 0;
  QObject::connect(&doc, &CKorvelAppDoc::photoRemoved, [&] { currentSeen = doc.CurrentIndex(); });
  doc.Remove(0);
  EXPECT_EQ(sent.Take(), (QStringList{"removed 0", "current -1"}));
  EXPECT_EQ(currentSeen, -1);
  EXPECT_EQ(doc.Count(), 2);
  doc.Remove(1);  // nothing was current: only the removal
  doc.Remove(5);
  EXPECT_EQ(sent.Take(), QStringList{"removed 1"});
  EXPECT_EQ(doc.PathAt(0), "/a/two.jpg");
}

TEST(Document, UniqueNamesFillGapsAndGrowPastThreeDigits) {
  QTemporaryDir dir;
  const QString folder = dir.path();
  EXPECT_EQ(CKorvelAppDoc::UniquePhotoName(folder), folder + "/Zib001.jpg");
  Touch(folder + "/Zib001.jpg");
  Touch(folder + "/Zib002.jpg");
  EXPECT_EQ(CKorvelAppDoc::UniquePhotoName(folder), folder + "/Zib003.jpg");
  QFile::remove(folder + "/Zib001.jpg");
  EXPECT_EQ(CKorvelAppDoc::UniquePhotoName(folder), folder + "/Zib001.jpg");
  for (int i = 1; i <= 999; ++i)
    Touch(folder + QString("/Zib%1.jpg").arg(i, 3, 10, QChar('0')));
  EXPECT_EQ(CKorvelAppDoc::UniquePhotoName(folder), folder + "/Zib1000.jpg");

  EXPECT_EQ(CKorvelAppDoc::FolderOf(folder), folder);
  QString temp = CKorvelAppDoc::TempPath();
  EXPECT_TRUE(temp.endsWith('/'));
  temp.chop(1);
  EXPECT_EQ(CKorvelAppDoc::FolderOf(folder + "/missing"), temp);
  // A TMPDIR that is not there never makes it the root folder.
  const QByteArray saved = qgetenv("TMPDIR");
  qputenv("TMPDIR", (folder + "/not-there").toUtf8());
  EXPECT_EQ(CKorvelAppDoc::TempPath(), "/tmp/");
  qputenv("TMPDIR", saved);
  if (saved.isEmpty()) qunsetenv("TMPDIR");
}

TEST(Document, CameraPicturesAreSavedAtOnceAsUnsavedJpegs) {
  ScriptedPrompt prompt;
  QTemporaryDir dir, outside;
  qputenv("KORVEL_PHOTO_DIR", dir.path().toUtf8());
  // A link left at the first name, leading out of the folder, is never followed.
  ASSERT_TRUE(QFile::link(outside.path() + "/escaped.jpg", dir.path() + "/Zib001.jpg"));
  CKorvelApp app;
  ASSERT_TRUE(app.InitInstance({"korvelapp"}));
  app.MainFrame()->OnPictureReceived(MakePhoto(64, 48));
  // A driver that gives the pixels per metre: 11811 is 300 dpi.
  HGLOBAL dpi300 = MakePhoto(32, 24);
  static_cast<BITMAPINFOHEADER *>(GlobalLock(dpi300))->biXPelsPerMeter = 11811;
  GlobalUnlock(dpi300);
  app.MainFrame()->OnPictureReceived(dpi300);
  CKorvelAppDoc *doc = app.Document();
  ASSERT_EQ(doc->Count(), 2);
  EXPECT_EQ(doc->PathAt(0), dir.path() + "/Zib002.jpg");
  EXPECT_EQ(doc->PathAt(1), dir.path() + "/Zib003.jpg");
  EXPECT_TRUE(QDir(outside.path()).isEmpty());
  EXPECT_EQ(doc->UnsavedAt(1), 1);
  RasDesc desc{};
  ASSERT_EQ(RasGetInfo(doc->PathAt(1).toUtf8().constData(), &desc), RasOk);
  EXPECT_EQ(desc.format, uint32_t{RasFormatJpeg});
  EXPECT_EQ(desc.width, 32u);
  EXPECT_EQ(desc.resolution, 300.0f);
  ASSERT_EQ(RasGetInfo(doc->PathAt(0).toUtf8().constData(), &desc), RasOk);
  EXPECT_EQ(desc.resolution, -1.0f);  // none given, none claimed

  // Without the photo folder, pictures go to the temporary folder.
  QTemporaryDir temp;
  qputenv("TMPDIR", temp.path().toUtf8());
  qputenv("KORVEL_PHOTO_DIR", (dir.path() + "/gone").toUtf8());
  app.MainFrame()->OnPictureReceived(MakePhoto(8, 8));
  EXPECT_EQ(doc->PathAt(2), QDir(temp.path()).absolutePath() + "/Zib001.jpg");
  EXPECT_TRUE(QFile::exists(doc->PathAt(2)));
  qunsetenv("TMPDIR");
  qunsetenv("KORVEL_PHOTO_DIR");
  EXPECT_TRUE(prompt.messages.isEmpty());
  for (int i = 0; i < doc->Count(); ++i)
    doc->ReplaceImage(i, doc->ImageAt(i), 0, QString());
}

}  // namespace
