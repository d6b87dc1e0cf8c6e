// Cameras through libgphoto2, with its "Directory Browse" camera serving
// folders of real JPEG files on a disk: port: finding, listing with previews,
// fetching, the download dialog driven by keyboard and mouse, stopping and
// losing the camera half-way, and finding the desktop's mount of a camera.
#include <gtest/gtest.h>

#include <QCheckBox>
#include <QDir>
#include <QFile>
#include <QListWidget>
#include <QProgressBar>
#include <QPushButton>
#include <QSettings>
#include <QTemporaryDir>
#include <QTest>

#include "acquire/gpcamera.h"
#include "app/cameradialog.h"
#include "app/document.h"
#include "app/formview.h"
#include "app/korvelapp.h"
#include "app/mainframe.h"
#include "raster/ras.h"
#include "tests/acquire/acquiretest.h"
#include "tests/app/scriptedprompt.h"

namespace {

const QString kTestData = QStringLiteral(KORVEL_TESTDATA_DIR "/jpeg/");
// Two with a preview inside (an Exif thumbnail), one without.
const QStringList kFiles = {"imagers__images_jpg_progressive_cat.jpg", "ljt__testorig.jpg",
                            "pillow__pil_sample_cmyk.jpg"};

QByteArray Contents(const QString &path) {
  QFile file(path);
  return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

uint32_t WidthOf(const QString &path) {
  RasDesc desc{};
  return RasGetInfo(QFile::encodeName(path).constData(), &desc) == RasOk ? desc.width : 0;
}

// A memory card: the three files in a DCIM folder, and a text file the
// directory camera does not count as a picture.
struct Card {
  Card() {
    QDir(dir.path()).mkpath("DCIM/100KORVL");
    for (const QString &name : kFiles)
      EXPECT_TRUE(QFile::copy(kTestData + name, Folder() + "/" + name));
    QFile notes(dir.path() + "/notes.txt");
    EXPECT_TRUE(notes.open(QIODevice::WriteOnly));
    notes.write("not a picture");
  }
  QString Folder() const { return dir.path() + "/DCIM/100KORVL"; }
  GpCameraId Id() const { return {"Directory Browse", "disk:" + dir.path()}; }
  QTemporaryDir dir;
};

TEST(GpCamera, FindListPreviewAndDownload) {
  Card card;
  const std::vector<GpCameraId> found =
      GpFindCameras({"Directory Browse|disk:" + card.dir.path(), "no bar here", "|disk:/x",
                     "Directory Browse|disk:" + card.dir.path()});
  ASSERT_FALSE(found.empty());
  EXPECT_EQ(found.back().model, "Directory Browse");
  EXPECT_EQ(found.back().port, "disk:" + card.dir.path());
  int extra = 0;
  for (const GpCameraId &id : found)
    extra += id.port == "disk:" + card.dir.path();
  EXPECT_EQ(extra, 1);

  CGpCamera camera(card.Id());
  std::vector<GpPicture> pictures;
  EXPECT_LT(camera.List(&pictures, true), 0);  // not open yet
  ASSERT_EQ(camera.Open(), 0) << CGpCamera::ResultText(camera.Open()).toStdString();
  ASSERT_EQ(camera.List(&pictures, true), 0);
  ASSERT_EQ(pictures.size(), 3u);
  QStringList names;
  for (const GpPicture &picture : pictures) {
    names << picture.name;
    EXPECT_EQ(picture.folder, "/DCIM/100KORVL");
  }
  names.sort();
  EXPECT_EQ(names, kFiles);
  for (const GpPicture &picture : pictures) {
    // The previews are the files' own thumbnails: JPEG images far smaller
    // than the pictures.
    const QByteArray whole = Contents(card.Folder() + "/" + picture.name);
    if (picture.name == "ljt__testorig.jpg") {
      EXPECT_TRUE(picture.preview.isEmpty());
    } else {
      ASSERT_FALSE(picture.preview.isEmpty()) << picture.name.toStdString();
      EXPECT_TRUE(picture.preview.startsWith("\xFF\xD8"));
      EXPECT_LT(picture.preview.size(), whole.size());
      HGLOBAL preview = DibFromFileBytes(picture.preview);
      ASSERT_NE(preview, nullptr);
      const CDib dib(preview);
      EXPECT_GT(dib.Width(), 0u);
      EXPECT_LE(dib.Width(), WidthOf(card.Folder() + "/" + picture.name));
    }
    QByteArray bytes;
    ASSERT_EQ(camera.Download(picture, &bytes), 0);
    EXPECT_EQ(bytes, whole);
    HGLOBAL block = DibFromFileBytes(bytes);
    ASSERT_NE(block, nullptr) << picture.name.toStdString();
    const CDib dib(block);
    EXPECT_EQ(dib.Width(), WidthOf(card.Folder() + "/" + picture.name));
    EXPECT_EQ(dib.BitsPerPixel(), 24u);
  }
  camera.Close();
  EXPECT_FALSE(camera.IsOpen());
  QByteArray bytes;
  EXPECT_LT(camera.Download(pictures.front(), &bytes), 0);
  // Bytes that are no picture decode to nothing.
  EXPECT_EQ(DibFromFileBytes(QByteArray("not a picture")), nullptr);
  EXPECT_EQ(DibFromFileBytes(QByteArray()), nullptr);
  // A camera that is not there does not open.
  CGpCamera missing({"No Such Camera Model", "disk:" + card.dir.path()});
  EXPECT_LT(missing.Open(), 0);
}

// The application with one directory camera configured and chosen.
struct CameraFixture {
  CameraFixture() {
    qputenv("KORVEL_PHOTO_DIR", photos.path().toUtf8());
    qputenv("KORVEL_TWAIN_DSM", "/nonexistent/libtwaindsm.so.2");
    QSettings("Local AppWizard-Generated Applications", "KorvelApp")
        .setValue("cameras/extra", "Directory Browse|disk:" + card.dir.path());
    EXPECT_TRUE(app.InitInstance({"korvelapp"}));
  }
  ~CameraFixture() {
    CKorvelAppDoc *doc = app.Document();
    for (int i = 0; i < doc->Count(); ++i)
      doc->ReplaceImage(i, doc->ImageAt(i), 0, QString());
    QSettings("Local AppWizard-Generated Applications", "KorvelApp").remove("cameras/extra");
    qunsetenv("KORVEL_PHOTO_DIR");
    qunsetenv("KORVEL_TWAIN_DSM");
  }
  // "DownLoad Images", choosing the camera in the Get Photo dialog.
  void GetPhotos() {
    const QStringList sources = app.MainFrame()->ListSources();
    const qsizetype index = sources.indexOf("Directory Browse (disk:" + card.dir.path() + ")");
    ASSERT_GE(index, 0);
    KorvelPrompt::GetPhotoAnswer answer;
    answer.result = KorvelPrompt::IDOK;
    answer.camera = true;
    answer.source = int(index);
    prompt.getPhoto.push_back(answer);
    app.View()->OnCommand(1014);
  }
  // The same, acting on the download dialog once it shows.
  void GetPhotos(const std::function<void(CCameraDialog *)> &act) {
    OnNextDialog next([&](QDialog *modal) {
      auto *dialog = qobject_cast<CCameraDialog *>(modal);
      ASSERT_NE(dialog, nullptr);
      act(dialog);
    });
    GetPhotos();
  }
  QString Photo(int number) const {
    return QDir(photos.path()).filePath(QStringLiteral("Zib%1.jpg").arg(number, 3, 10, QChar('0')));
  }

  Card card;
  ScriptedPrompt prompt;
  QTemporaryDir photos;
  CKorvelApp app;
};

// The dialog's pictures in list order, and whether each is checked.
std::vector<std::pair<QString, bool>> Rows(CCameraDialog *dialog) {
  std::vector<std::pair<QString, bool>> rows;
  for (int i = 0; i < dialog->Pictures()->count(); ++i)
    rows.emplace_back(dialog->Pictures()->item(i)->text(),
                      dialog->Pictures()->item(i)->checkState() == Qt::Checked);
  return rows;
}

TEST(CameraDialog, DownloadsTheCheckedPictures) {
  CameraFixture f;
  std::vector<std::pair<QString, bool>> shown;
  std::vector<bool> iconsDiffer;
  f.GetPhotos([&](CCameraDialog *dialog) {
    shown = Rows(dialog);
    // A preview shows where the camera has one; the picture without one
    // shows the plain placeholder.
    const QImage placeholder =
        dialog->Pictures()->item(1)->icon().pixmap(CCameraDialog::kIconSize).toImage();
    for (int i = 0; i < dialog->Pictures()->count(); ++i)
      iconsDiffer.push_back(
          dialog->Pictures()->item(i)->icon().pixmap(CCameraDialog::kIconSize).toImage() !=
          placeholder);
    EXPECT_FALSE(dialog->Progress()->isVisible());
    // The second picture is unchecked from the keyboard.
    QListWidget *list = dialog->Pictures();
    list->setFocus();
    QTest::keyClick(list, Qt::Key_Right);
    QTest::keyClick(list, Qt::Key_Space);
    QTest::mouseClick(dialog->DownloadButton(), Qt::LeftButton);
  });
  ASSERT_EQ(shown.size(), 3u);
  std::vector<std::pair<QString, bool>> expected;
  for (const QString &name : kFiles)
    expected.emplace_back(name, true);
  // The directory camera lists in name order.
  EXPECT_EQ(shown, expected);
  EXPECT_EQ(iconsDiffer, (std::vector<bool>{true, false, true}));

  CKorvelAppDoc *doc = f.app.Document();
  ASSERT_EQ(doc->Count(), 2);
  EXPECT_EQ(doc->PathAt(0), f.Photo(1));
  EXPECT_EQ(doc->PathAt(1), f.Photo(2));
  EXPECT_EQ(doc->UnsavedAt(0), 1);
  EXPECT_EQ(doc->UnsavedAt(1), 1);
  EXPECT_EQ(doc->ImageAt(0).Width(), WidthOf(f.card.Folder() + "/" + kFiles[0]));
  EXPECT_EQ(doc->ImageAt(1).Width(), WidthOf(f.card.Folder() + "/" + kFiles[2]));
  EXPECT_EQ(WidthOf(f.Photo(1)), WidthOf(f.card.Folder() + "/" + kFiles[0]));
  EXPECT_EQ(WidthOf(f.Photo(2)), WidthOf(f.card.Folder() + "/" + kFiles[2]));
  EXPECT_FALSE(QFile::exists(f.Photo(3)));
  EXPECT_TRUE(f.prompt.messages.isEmpty()) << f.prompt.messages.join('\n').toStdString();

  // Cancel before downloading: nothing more.
  f.GetPhotos(
      [](CCameraDialog *dialog) { QTest::mouseClick(dialog->CancelButton(), Qt::LeftButton); });
  EXPECT_EQ(doc->Count(), 2);
}

TEST(CameraDialog, StoppedOrLostHalfWayKeepsWhatArrived) {
  {
    // The Cancel beside the progress bar, pressed after the first picture.
    CameraFixture f;
    bool progressShown = false;
    f.GetPhotos([&](CCameraDialog *dialog) {
      QObject::connect(dialog, &CCameraDialog::PictureDone, dialog, [&, dialog](int received) {
        progressShown = dialog->Progress()->isVisible() && dialog->StopButton()->isVisible();
        if (received == 1) QTest::mouseClick(dialog->StopButton(), Qt::LeftButton);
      });
      QTest::mouseClick(dialog->DownloadButton(), Qt::LeftButton);
    });
    EXPECT_TRUE(progressShown);
    ASSERT_EQ(f.app.Document()->Count(), 1);
    EXPECT_TRUE(QFile::exists(f.Photo(1)));
    EXPECT_FALSE(QFile::exists(f.Photo(2)));
    EXPECT_TRUE(f.prompt.messages.isEmpty());
  }
  {
    // The camera goes away after the first picture: its files vanish.
    CameraFixture f;
    f.GetPhotos([&](CCameraDialog *dialog) {
      QObject::connect(dialog, &CCameraDialog::PictureDone, dialog, [&](int received) {
        if (received == 1) QDir(f.card.Folder()).removeRecursively();
      });
      QTest::mouseClick(dialog->DownloadButton(), Qt::LeftButton);
    });
    ASSERT_EQ(f.app.Document()->Count(), 1);
    EXPECT_TRUE(QFile::exists(f.Photo(1)));
    ASSERT_EQ(f.prompt.messages.size(), 1);
    EXPECT_TRUE(f.prompt.messages[0].contains("stopped answering"))
        << f.prompt.messages[0].toStdString();
    EXPECT_TRUE(f.prompt.messages[0].contains("received before were kept"));
  }
  {
    // An empty camera is told, with no dialog.
    CameraFixture f;
    QDir(f.card.Folder()).removeRecursively();
    f.GetPhotos();
    EXPECT_EQ(f.app.Document()->Count(), 0);
    ASSERT_EQ(f.prompt.messages.size(), 1);
    EXPECT_TRUE(f.prompt.messages[0].startsWith("There are no pictures on the camera"));
  }
}

TEST(GpCamera, DesktopMountOfACamera) {
  // As `gio mount -li` lists a camera claimed by the desktop's gphoto2
  // volume monitor, beside an unrelated phone.
  const QString listing = QStringLiteral(
      "Drive(0): Some Disk\n"
      "  Type: GProxyDrive (GProxyVolumeMonitorUDisks2)\n"
      "Volume(0): Phone\n"
      "  Type: GProxyVolume (GProxyVolumeMonitorMTP)\n"
      "  ids:\n"
      "   unix-device: '/dev/bus/usb/002/009'\n"
      "  activation_root=mtp://Phone_Maker_Phone_0123/\n"
      "Volume(1): Canon Digital Camera\n"
      "  Type: GProxyVolume (GProxyVolumeMonitorGPhoto2)\n"
      "  ids:\n"
      "   unix-device: '/dev/bus/usb/001/005'\n"
      "  activation_root=gphoto2://Canon_Inc._Canon_Digital_Camera/\n"
      "  Mount(0): Canon Digital Camera -> gphoto2://Canon_Inc._Canon_Digital_Camera/\n"
      "    Type: GProxyShadowMount (GProxyVolumeMonitorGPhoto2)\n"
      "Mount(1): old camera -> gphoto2://[usb:003,004]/\n"
      "  Type: GDaemonMount\n");
  EXPECT_EQ(GpDesktopMountFor(listing, "usb:001,005"),
            "gphoto2://Canon_Inc._Canon_Digital_Camera/");
  EXPECT_EQ(GpDesktopMountFor(listing, "usb:002,009"), "mtp://Phone_Maker_Phone_0123/");
  EXPECT_EQ(GpDesktopMountFor(listing, "usb:003,004"), "gphoto2://[usb:003,004]/");
  EXPECT_EQ(GpDesktopMountFor(listing, "usb:001,006"), "");
  EXPECT_EQ(GpDesktopMountFor(listing, "disk:/media/card"), "");
  EXPECT_EQ(GpUnmountCommand("gphoto2://[usb:003,004]/"),
            (QStringList{"gio", "mount", "-u", "gphoto2://[usb:003,004]/"}));
  EXPECT_TRUE(CGpCamera::IsBusy(-53));
  EXPECT_FALSE(CGpCamera::IsBusy(-7));
  EXPECT_TRUE(CGpCamera::ResultText(-53).contains("claim"));
}

}  // namespace
