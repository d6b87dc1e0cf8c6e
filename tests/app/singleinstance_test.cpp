// A later launch hands its photos to the running instance over a local
// socket; a socket left behind by an instance that is gone is taken over.
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <QDialog>
#include <QFileInfo>
#include <QLocalSocket>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>
#include <cstring>
#include <future>

#include "app/openphotos.h"
#include "app/singleinstance.h"
#include "photo/document.h"
#include "tests/app/scriptedprompt.h"
#include "tests/raster/testutil.h"

namespace {

// The later launch runs in a thread of its own: it waits on the socket,
// which the listener in this thread answers from its event loop.
std::future<bool> HandOverLater(const QString &name, const QStringList &paths) {
  return std::async(std::launch::async,
                    [name, paths] { return CSingleInstance::HandOver(name, paths, 5000); });
}

// What the listener received, once one hand-over has arrived.
QStringList Received(QSignalSpy &spy) {
  if (spy.isEmpty() && !spy.wait(5000)) return {"(nothing arrived)"};
  return spy.takeFirst().at(0).toStringList();
}

// A socket file as a crashed instance leaves it: bound, then closed without
// being removed, so that connecting to it is refused.
bool LeaveStaleSocket(const QString &path) {
  const int fd = ::socket(AF_UNIX, SOCK_STREAM, 0);
  if (fd < 0) return false;
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  const QByteArray name = path.toLocal8Bit();
  std::memcpy(address.sun_path, name.constData(), size_t(name.size()));
  const bool bound = ::bind(fd, reinterpret_cast<sockaddr *>(&address), sizeof address) == 0;
  ::close(fd);
  return bound;
}

TEST(SingleInstance, ALaterLaunchHandsItsPathsToTheListener) {
  QTemporaryDir dir;
  const QString name = dir.filePath("instance");
  EXPECT_FALSE(CSingleInstance::HandOver(name, {"/a.jpg"}, 1000)) << "nobody listens yet";
  CSingleInstance first(name);
  ASSERT_TRUE(first.Listen());
  QSignalSpy spy(&first, &CSingleInstance::pathsReceived);
  const QStringList paths = {"/photos/b.jpg", "/photos/with space.jpg", "/photos/ä.jpg"};
  std::future<bool> sent = HandOverLater(name, paths);
  EXPECT_EQ(Received(spy), paths);
  EXPECT_TRUE(sent.get());
  // A launch with nothing to open still reaches the window, with an empty list.
  sent = HandOverLater(name, {});
  EXPECT_EQ(Received(spy), QStringList{});
  EXPECT_TRUE(sent.get());

  // While the first listens, another instance at the same name cannot, and
  // leaves the first working.
  CSingleInstance second(name);
  EXPECT_FALSE(second.Listen());
  sent = HandOverLater(name, {"/c.jpg"});
  EXPECT_EQ(Received(spy), QStringList{"/c.jpg"});
  EXPECT_TRUE(sent.get());
}

TEST(SingleInstance, ASocketLeftBehindIsTakenOver) {
  QTemporaryDir dir;
  const QString name = dir.filePath("instance");
  ASSERT_TRUE(LeaveStaleSocket(name));
  ASSERT_TRUE(QFileInfo::exists(name));
  EXPECT_FALSE(CSingleInstance::HandOver(name, {"/a.jpg"}, 1000));
  CSingleInstance launch(name);
  EXPECT_EQ(launch.Start({"/a.jpg"}), CSingleInstance::kFirst);
  EXPECT_TRUE(launch.IsListening());
  QSignalSpy spy(&launch, &CSingleInstance::pathsReceived);
  std::future<bool> sent = HandOverLater(name, {"/b.jpg"});
  EXPECT_EQ(Received(spy), QStringList{"/b.jpg"});
  EXPECT_TRUE(sent.get());
}

TEST(SingleInstance, AMessageThatIsNotOneIsRefused) {
  QTemporaryDir dir;
  const QString name = dir.filePath("instance");
  CSingleInstance first(name);
  ASSERT_TRUE(first.Listen());
  QSignalSpy spy(&first, &CSingleInstance::pathsReceived);
  std::future<bool> stranger = std::async(std::launch::async, [name] {
    QLocalSocket socket;
    socket.connectToServer(name);
    if (!socket.waitForConnected(5000)) return false;
    socket.write(QByteArray(64, 'x'));
    socket.waitForBytesWritten(5000);
    // Refused: the listener hangs up at once, without the answer byte (a
    // listener still waiting for the rest would leave the line open).
    return !socket.waitForReadyRead(5000) && socket.bytesAvailable() == 0 &&
           socket.state() == QLocalSocket::UnconnectedState;
  });
  EXPECT_TRUE(QTest::qWaitFor(
      [&] { return stranger.wait_for(std::chrono::seconds(0)) == std::future_status::ready; },
      10000));
  EXPECT_TRUE(stranger.get());
  EXPECT_TRUE(spy.isEmpty());
}

TEST(PhotoInbox, PhotosWaitForTheWorkAreaAndOpenInOrder) {
  ScriptedPrompt prompt;
  QTemporaryDir dir;
  const QString a = dir.filePath("a.bmp"), b = dir.filePath("b.bmp");
  for (const QString &path : {a, b})
    ASSERT_EQ(testutil::WritePicture(path.toStdString(), RasFormatBmp, RasModelRgb,
                                     testutil::Pattern(2, 2, 3)),
              RasOk);
  CPhotoInbox inbox;
  inbox.Receive({b, "/no/such.jpg"});
  inbox.Receive({a});
  EXPECT_EQ(inbox.Waiting(), (QStringList{b, "/no/such.jpg", a}));
  CKorvelAppDoc doc;
  QWidget window;
  // Not under a question: the work area it asks about must not change.
  QDialog question;
  question.setWindowModality(Qt::ApplicationModal);
  question.show();
  inbox.SetTarget(&doc, &window);
  EXPECT_EQ(inbox.Waiting().size(), 3);
  EXPECT_EQ(doc.Count(), 0);
  question.close();
  QTRY_COMPARE_WITH_TIMEOUT(doc.Count(), 2, 5000);
  EXPECT_TRUE(inbox.Waiting().isEmpty());
  EXPECT_EQ(doc.PathAt(0), b);
  EXPECT_EQ(doc.PathAt(1), a);
  EXPECT_TRUE(prompt.messages.isEmpty()) << "handed-over photos fail quietly";
}

}  // namespace
