// The camera download dialog fetching on its worker thread, over libgphoto2's
// directory camera: the window keeps answering while pictures come, each
// picture reaches the sink on the window's thread in the camera's order, a
// Stop or a close after the first picture keeps exactly that one, and a
// camera lost half-way or a file that is no picture is told exactly.
#include <gtest/gtest.h>

#include <QProgressBar>
#include <QPushButton>
#include <QTest>
#include <QThread>
#include <QTimer>
#include <memory>

#include "acquire/gpcamera.h"
#include "app/cameradialog.h"
#include "photo/dib.h"
#include "tests/acquire/acquiretest.h"
#include "tests/acquire/cameracard.h"

namespace {

// The download dialog over every picture of `card` (all checked), with a
// sink that notes what it is given and where, and frees it.
struct Download {
  explicit Download(const Card &card) : camera{"Directory Browse", card.Port()} {
    CGpCamera device(camera);
    EXPECT_EQ(device.Open(), 0);
    EXPECT_EQ(device.List(&pictures, false), 0);
    device.Close();
    dialog = std::make_unique<CCameraDialog>(camera, pictures, std::vector<QImage>{},
                                             [this](HGLOBAL dib) { Take(dib); });
    // Each tick is one turn of the window's event loop with nothing else to
    // do: they pile up only while the window's thread is idle.
    QObject::connect(&idle, &QTimer::timeout, [this] { ++ticks; });
    idle.start(0);
  }

  void Take(HGLOBAL block) {
    const CDib dib(block);
    widths.push_back(dib.Width());
    ticksAtArrival.push_back(ticks);
    onWindowThread = onWindowThread && QThread::currentThread() == qApp->thread();
  }

  // Clicks "Get Photo" and runs the window's events until the dialog closes.
  void Run() {
    dialog->show();
    QTest::mouseClick(dialog->DownloadButton(), Qt::LeftButton);
    // The click starts the download and returns: nothing has arrived yet.
    clickReturnedEmpty = dialog->Received() == 0 && dialog->isVisible();
    EXPECT_TRUE(RunUntil([&] { return !dialog->isVisible(); }));
  }

  GpCameraId camera;
  std::vector<GpPicture> pictures;
  ScriptedPrompt prompt;
  std::unique_ptr<CCameraDialog> dialog;
  QTimer idle;
  int ticks = 0;
  std::vector<uint32_t> widths;
  std::vector<int> ticksAtArrival;
  bool onWindowThread = true;
  bool clickReturnedEmpty = false;
};

// A photo of `size` with detail everywhere, so that decoding it takes the
// worker a while: a few milliseconds, many turns of an idle event loop.
void WritePhoto(const QString &path, QSize size) {
  QImage image(size, QImage::Format_RGB32);
  for (int y = 0; y < size.height(); ++y) {
    auto *line = reinterpret_cast<QRgb *>(image.scanLine(y));
    for (int x = 0; x < size.width(); ++x)
      line[x] = qRgb((x * 7 + y) & 255, (x ^ y) & 255, (x * y / 16) & 255);
  }
  ASSERT_TRUE(image.save(path, "JPEG", 90));
}

TEST(CameraDownload, StreamsInOrderOnTheWindowThreadWhileItKeepsAnswering) {
  Card card{QStringList()};
  const QSize sizes[] = {{1200, 900}, {900, 1100}, {1000, 700}, {1100, 800}};
  for (int i = 0; i < 4; ++i)
    WritePhoto(card.File(QStringLiteral("P%1.JPG").arg(i)), sizes[i]);
  Download d(card);
  ASSERT_EQ(d.pictures.size(), 4u);
  d.Run();

  EXPECT_TRUE(d.clickReturnedEmpty);
  EXPECT_TRUE(d.onWindowThread);
  EXPECT_EQ(d.dialog->result(), QDialog::Accepted);
  EXPECT_EQ(d.dialog->Received(), 4);
  EXPECT_EQ(d.dialog->Progress()->value(), 4);
  // In the camera's order, each the size the raster library reads from the
  // file on the card.
  std::vector<uint32_t> expected;
  for (const GpPicture &picture : d.pictures)
    expected.push_back(WidthOf(card.dir.path() + picture.folder + "/" + picture.name));
  EXPECT_EQ(expected, (std::vector<uint32_t>{1200, 900, 1000, 1100}));
  EXPECT_EQ(d.widths, expected);
  // While the worker fetched and decoded each next picture, the window's
  // thread went round its event loop again and again (a loop that only
  // looked at its events between pictures would go round once).
  ASSERT_EQ(d.ticksAtArrival.size(), 4u);
  for (size_t i = 1; i < d.ticksAtArrival.size(); ++i)
    EXPECT_GE(d.ticksAtArrival[i] - d.ticksAtArrival[i - 1], 3) << "before picture " << i;
  EXPECT_TRUE(d.prompt.messages.isEmpty()) << d.prompt.messages.join('\n').toStdString();
}

TEST(CameraDownload, StopOrCloseAfterTheFirstKeepsExactlyIt) {
  for (const bool close : {false, true}) {
    SCOPED_TRACE(close ? "closed" : "stopped");
    Card card;
    Download d(card);
    bool waitedForWorker = false;
    QObject::connect(d.dialog.get(), &CCameraDialog::PictureDone, [&](int received) {
      if (received != 1) return;
      if (close)
        QTest::keyClick(d.dialog.get(), Qt::Key_Escape);
      else
        QTest::mouseClick(d.dialog->StopButton(), Qt::LeftButton);
      // The dialog stays until the worker says it is over.
      waitedForWorker = d.dialog->isVisible();
    });
    d.Run();
    EXPECT_TRUE(waitedForWorker);
    EXPECT_EQ(d.dialog->Received(), 1);
    EXPECT_EQ(d.widths.size(), 1u);
    EXPECT_EQ(d.dialog->Progress()->value(), 1);
    EXPECT_EQ(d.dialog->result(), QDialog::Accepted);
    EXPECT_TRUE(d.prompt.messages.isEmpty()) << d.prompt.messages.join('\n').toStdString();
  }
}

TEST(CameraDownload, LostCameraAndUnreadablePicturesAreToldExactly) {
  Card card;
  // Named to come first: a file of the card that is no picture.
  QFile broken(card.File("broken.jpg"));
  ASSERT_TRUE(broken.open(QIODevice::WriteOnly));
  broken.write("not a picture at all");
  broken.close();
  Download d(card);
  ASSERT_EQ(d.pictures.size(), 4u);
  ASSERT_EQ(d.pictures[0].name, "broken.jpg");
  // The card is pulled once the first good picture has arrived.
  QObject::connect(d.dialog.get(), &CCameraDialog::PictureDone, [&](int received) {
    if (received == 1) QDir(card.Folder()).removeRecursively();
  });
  d.Run();
  EXPECT_EQ(d.dialog->Received(), 1);
  EXPECT_EQ(d.dialog->Progress()->value(), 2);

  // The directory camera, reading the file it had opened the card's folder
  // for, answers as a USB camera pulled out does.
  EXPECT_EQ(d.prompt.messages,
            (QStringList{"1 of the pictures could not be read and were left on the camera.",
                         "The camera Directory Browse (" + card.Port() +
                             ") stopped answering (Error reading from the port). The photos "
                             "received before were kept."}));
}

}  // namespace
