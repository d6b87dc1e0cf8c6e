// Cameras through libgphoto2, with its "Directory Browse" camera serving
// folders of real JPEG files on a disk: port: finding, listing with previews,
// fetching, the download dialog driven by keyboard and mouse, stopping and
// losing the camera half-way, and finding the desktop's mount of a camera.
#include <gtest/gtest.h>

#include <QListWidget>
#include <QProgressBar>
#include <QPushButton>
#include <QTest>

#include "acquire/gpcamera.h"
#include "app/cameradialog.h"
#include "tests/acquire/acquiretest.h"
#include "tests/acquire/cameracard.h"

namespace {

const QStringList &kFiles = kCardFiles;

TEST(GpCamera, FindListPreviewAndDownload) {
  Card card;
  const std::vector<GpCameraId> found =
      GpFindCameras({"Directory Browse|" + card.Port(), "no bar here", "|disk:/x",
                     "Directory Browse|" + card.Port()});
  ASSERT_FALSE(found.empty());
  EXPECT_EQ(found.back().model, "Directory Browse");
  EXPECT_EQ(std::count_if(found.begin(), found.end(),
                          [&](const GpCameraId &id) { return id.port == card.Port(); }),
            1);
  EXPECT_EQ(found.back().port, card.Port());

  CGpCamera camera({"Directory Browse", card.Port()});
  std::vector<GpPicture> pictures;
  EXPECT_LT(camera.List(&pictures, true), 0);  // not open yet
  ASSERT_EQ(camera.Open(), 0);
  ASSERT_EQ(camera.List(&pictures, true), 0);
  QStringList names;
  for (const GpPicture &picture : pictures) {
    SCOPED_TRACE(picture.name.toStdString());
    names << picture.name;
    EXPECT_EQ(picture.folder, "/DCIM/100KORVL");
    const uint32_t width = WidthOf(card.File(picture.name));
    QFile file(card.File(picture.name));
    ASSERT_TRUE(file.open(QIODevice::ReadOnly));
    const QByteArray whole = file.readAll();
    // The previews are the files' own thumbnails: JPEG images far smaller
    // than the pictures.
    EXPECT_EQ(picture.preview.isEmpty(), picture.name == "ljt__testorig.jpg");
    if (!picture.preview.isEmpty()) {
      EXPECT_TRUE(picture.preview.startsWith("\xFF\xD8"));
      EXPECT_LT(picture.preview.size(), whole.size());
      HGLOBAL preview = DibFromFileBytes(picture.preview);
      ASSERT_NE(preview, nullptr);
      const CDib dib(preview);
      EXPECT_GT(dib.Width(), 0u);
      EXPECT_LE(dib.Width(), width);
    }
    QByteArray bytes;
    ASSERT_EQ(camera.Download(picture, &bytes), 0);
    EXPECT_EQ(bytes, whole);
    HGLOBAL block = DibFromFileBytes(bytes);
    ASSERT_NE(block, nullptr);
    const CDib dib(block);
    EXPECT_EQ(dib.Width(), width);
    EXPECT_EQ(dib.BitsPerPixel(), 24u);
  }
  names.sort();
  EXPECT_EQ(names, kFiles);
  camera.Close();
  EXPECT_FALSE(camera.IsOpen());
  QByteArray bytes;
  EXPECT_LT(camera.Download(pictures.front(), &bytes), 0);
  // Bytes that are no picture decode to nothing.
  EXPECT_EQ(DibFromFileBytes(QByteArray("not a picture")), nullptr);
  EXPECT_EQ(DibFromFileBytes(QByteArray()), nullptr);
  // A camera that is not there does not open.
  CGpCamera missing({"No Such Camera Model", card.Port()});
  EXPECT_LT(missing.Open(), 0);
}

// The application with the test TWAIN manager (its sources listed before
// the cameras) and one directory camera configured.
struct CameraFixture : Card, TwainEnvironment, AppFixture {
  CameraFixture() : AppFixture("Directory Browse|" + Port()) {}
  // "DownLoad Images" choosing the camera, acting on the download dialog
  // once it shows.
  void GetPhotos(const std::function<void(CCameraDialog *)> &act = nullptr) {
    const QStringList sources = Frame()->ListSources();
    const qsizetype index = sources.indexOf("Directory Browse (" + Port() + ")");
    ASSERT_GT(index, 0);
    if (!act) return GetPhoto(int(index));
    OnNextDialog next([&](QDialog *modal) {
      auto *dialog = qobject_cast<CCameraDialog *>(modal);
      ASSERT_NE(dialog, nullptr);
      act(dialog);
    });
    GetPhoto(int(index));
  }
};

// The mean colour of the 8 x 8 pixels in the middle of `image`.
QColor MiddleColour(const QImage &image) {
  int sums[3] = {0, 0, 0};
  const QPoint middle = image.rect().center() - QPoint(4, 4);
  for (int y = 0; y < 8; ++y)
    for (int x = 0; x < 8; ++x) {
      const QRgb pixel = image.pixel(middle + QPoint(x, y));
      sums[0] += qRed(pixel), sums[1] += qGreen(pixel), sums[2] += qBlue(pixel);
    }
  return QColor(sums[0] / 64, sums[1] / 64, sums[2] / 64);
}

TEST(CameraDialog, DownloadsTheCheckedPictures) {
  CameraFixture f;
  std::vector<std::pair<QString, bool>> shown, expected;
  f.GetPhotos([&](CCameraDialog *dialog) {
    QListWidget *list = dialog->Pictures();
    for (int i = 0; i < list->count(); ++i) {
      shown.emplace_back(list->item(i)->text(), list->item(i)->checkState() == Qt::Checked);
      // Each icon shows its picture: the camera's preview where it keeps
      // one, else the picture itself made small. Qt's own reader decodes
      // the reference.
      SCOPED_TRACE(list->item(i)->text().toStdString());
      const QColor icon =
          MiddleColour(list->item(i)->icon().pixmap(CCameraDialog::kIconSize).toImage());
      const QColor picture = MiddleColour(
          QImage(f.File(list->item(i)->text()))
              .scaled(CCameraDialog::kIconSize, Qt::KeepAspectRatio, Qt::SmoothTransformation));
      EXPECT_NEAR(icon.red(), picture.red(), 24);
      EXPECT_NEAR(icon.green(), picture.green(), 24);
      EXPECT_NEAR(icon.blue(), picture.blue(), 24);
    }
    EXPECT_FALSE(dialog->Progress()->isVisible());
    // The second picture is unchecked from the keyboard.
    list->setFocus();
    QTest::keyClick(list, Qt::Key_Right);
    QTest::keyClick(list, Qt::Key_Space);
    QTest::mouseClick(dialog->DownloadButton(), Qt::LeftButton);
  });
  // The directory camera lists in name order, all checked.
  for (const QString &name : kFiles)
    expected.emplace_back(name, true);
  EXPECT_EQ(shown, expected);

  ASSERT_EQ(f.Doc()->Count(), 2);
  for (int i : {0, 1}) {
    const uint32_t width = WidthOf(f.File(kFiles[2 * i]));
    EXPECT_EQ(f.Doc()->PathAt(i), f.Photo(i + 1));
    EXPECT_EQ(f.Doc()->UnsavedAt(i), 1);
    EXPECT_EQ(f.Doc()->ImageAt(i).Width(), width);
    EXPECT_EQ(WidthOf(f.Photo(i + 1)), width);
  }
  EXPECT_FALSE(QFile::exists(f.Photo(3)));
  EXPECT_TRUE(f.prompt.messages.isEmpty()) << f.prompt.messages.join('\n').toStdString();

  // Cancel before downloading: nothing more.
  f.GetPhotos(
      [](CCameraDialog *dialog) { QTest::mouseClick(dialog->CancelButton(), Qt::LeftButton); });
  EXPECT_EQ(f.Doc()->Count(), 2);
}

TEST(CameraDialog, StoppedOrLostHalfWayKeepsWhatArrived) {
  for (const bool lost : {false, true}) {
    // The Cancel beside the progress bar pressed after the first picture, or
    // the camera gone after it (its files vanish).
    SCOPED_TRACE(lost ? "lost" : "stopped");
    CameraFixture f;
    bool progressShown = false;
    f.GetPhotos([&](CCameraDialog *dialog) {
      QObject::connect(dialog, &CCameraDialog::PictureDone, dialog, [&, dialog](int received) {
        progressShown = dialog->Progress()->isVisible() && dialog->StopButton()->isVisible();
        if (received != 1) return;
        if (lost)
          QDir(f.Folder()).removeRecursively();
        else
          QTest::mouseClick(dialog->StopButton(), Qt::LeftButton);
      });
      QTest::mouseClick(dialog->DownloadButton(), Qt::LeftButton);
    });
    EXPECT_TRUE(progressShown);
    ASSERT_EQ(f.Doc()->Count(), 1);
    EXPECT_TRUE(QFile::exists(f.Photo(1)));
    EXPECT_FALSE(QFile::exists(f.Photo(2)));
    if (!lost) {
      EXPECT_TRUE(f.prompt.messages.isEmpty());
    } else {
      ASSERT_EQ(f.prompt.messages.size(), 1);
      const QString name = "The camera Directory Browse (" + f.Port() + ")";
      EXPECT_TRUE(f.prompt.messages[0].startsWith(name + " stopped answering ("))
          << f.prompt.messages[0].toStdString();
      EXPECT_TRUE(f.prompt.messages[0].endsWith("). The photos received before were kept."));
    }
  }
  // An empty camera is told, with no dialog.
  CameraFixture f;
  QDir(f.Folder()).removeRecursively();
  f.GetPhotos();
  EXPECT_EQ(f.Doc()->Count(), 0);
  EXPECT_EQ(
      f.prompt.messages,
      QStringList{"There are no pictures on the camera Directory Browse (" + f.Port() + ")."});
}

TEST(GpCamera, DesktopMountOfACamera) {
  // As `gio mount -li` lists (less its type and id lines) a camera claimed
  // by the desktop's gphoto2 volume monitor, beside an unrelated phone.
  const QString listing = QStringLiteral(
      "Volume(0): Phone\n"
      "   unix-device: '/dev/bus/usb/002/009'\n"
      "  activation_root=mtp://Phone_Maker_Phone_0123/\n"
      "Volume(1): Canon Digital Camera\n"
      "   unix-device: '/dev/bus/usb/001/005'\n"
      "  activation_root=gphoto2://Canon_Inc._Canon_Digital_Camera/\n"
      "  Mount(0): Canon Digital Camera -> gphoto2://Canon_Inc._Canon_Digital_Camera/\n"
      "Mount(1): old camera -> gphoto2://[usb:003,004]/\n");
  const std::pair<const char *, const char *> cases[] = {
      {"usb:001,005", "gphoto2://Canon_Inc._Canon_Digital_Camera/"},
      {"usb:002,009", "mtp://Phone_Maker_Phone_0123/"},
      {"usb:003,004", "gphoto2://[usb:003,004]/"},
      {"usb:001,006", ""},
      {"disk:/media/card", ""}};
  for (const auto &[port, mount] : cases)
    EXPECT_EQ(GpDesktopMountFor(listing, port), mount);
  EXPECT_EQ(GpUnmountCommand("gphoto2://[usb:003,004]/"),
            (QStringList{"gio", "mount", "-u", "gphoto2://[usb:003,004]/"}));
  EXPECT_TRUE(CGpCamera::IsBusy(-53));
  EXPECT_FALSE(CGpCamera::IsBusy(-7));
  EXPECT_TRUE(CGpCamera::ResultText(-53).contains("claim"));
}

}  // namespace
