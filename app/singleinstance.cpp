// The hand-over between launches. A message is a magic number and the list
// of paths in QDataStream form; the listener answers one byte once it has
// them, so that the later launch leaves only when nothing can be lost.
#include "app/singleinstance.h"

#include <unistd.h>

#include <QDataStream>
#include <QDir>
#include <QFileInfo>
#include <QLocalSocket>

namespace {

constexpr quint32 kMagic = 0x4b4f5231;  // "KOR1"
constexpr char kReceived = 'K';
constexpr QDataStream::Version kStreamVersion = QDataStream::Qt_6_0;
// How long a connection to a socket file may take before it counts as left
// behind: a live instance accepts at once, a stale file refuses at once.
constexpr int kConnectMs = 1000;

// The display (or, without one, the login session) as a file-name part.
QString DisplayPart() {
  QString display = qEnvironmentVariable("WAYLAND_DISPLAY");
  if (display.isEmpty()) display = qEnvironmentVariable("DISPLAY");
  if (display.isEmpty()) display = qEnvironmentVariable("XDG_SESSION_ID");
  if (display.isEmpty()) display = QStringLiteral("none");
  for (QChar &c : display)
    if (!c.isLetterOrNumber() && c != '-' && c != '.') c = '_';
  return display;
}

bool Connect(QLocalSocket *socket, const QString &serverName) {
  socket->connectToServer(serverName);
  return socket->waitForConnected(kConnectMs);
}

}  // namespace

QString CSingleInstance::DefaultServerName() {
  const QString runtime = qEnvironmentVariable("XDG_RUNTIME_DIR");
  if (!runtime.isEmpty() && QFileInfo(runtime).isDir())
    return QDir(runtime).filePath(QStringLiteral("korvelapp-") + DisplayPart());
  return QStringLiteral("korvelapp-%1-%2").arg(getuid()).arg(DisplayPart());
}

bool CSingleInstance::HandOver(const QString &serverName, const QStringList &paths, int timeoutMs) {
  QLocalSocket socket;
  if (!Connect(&socket, serverName)) return false;
  QByteArray message;
  QDataStream out(&message, QIODevice::WriteOnly);
  out.setVersion(kStreamVersion);
  out << kMagic << paths;
  socket.write(message);
  if (!socket.waitForBytesWritten(timeoutMs)) return false;
  while (socket.bytesAvailable() < 1)
    if (!socket.waitForReadyRead(timeoutMs)) return false;
  char answer = 0;
  return socket.getChar(&answer) && answer == kReceived;
}

CSingleInstance::CSingleInstance(const QString &serverName, QObject *parent)
    : QObject(parent), name_(serverName) {
  // Only this user's launches may hand over photos.
  server_.setSocketOptions(QLocalServer::UserAccessOption);
  connect(&server_, &QLocalServer::newConnection, this, &CSingleInstance::Accept);
}

CSingleInstance::Role CSingleInstance::Start(const QStringList &paths) {
  // Two launches at the same moment may both find nobody and race for the
  // name: the loser hands over to the winner on its second round.
  for (int round = 0; round < 2; ++round) {
    if (HandOver(name_, paths)) return kHandedOver;
    if (Listen()) return kFirst;
  }
  return kAlone;
}

bool CSingleInstance::Listen() {
  // Asked first, since listening with access options puts the new socket in
  // place of any file at the name, a live instance's included.
  QLocalSocket probe;
  if (Connect(&probe, name_)) return false;
  // Nobody answers: a socket file there was left behind by an instance that
  // ended without removing it.
  QLocalServer::removeServer(name_);
  return server_.listen(name_);
}

void CSingleInstance::Accept() {
  while (QLocalSocket *socket = server_.nextPendingConnection()) {
    connect(socket, &QLocalSocket::disconnected, socket, &QObject::deleteLater);
    connect(socket, &QLocalSocket::readyRead, this, [this, socket] { Read(socket); });
    if (socket->bytesAvailable() > 0) Read(socket);
  }
}

void CSingleInstance::Read(QLocalSocket *socket) {
  QDataStream in(socket);
  in.setVersion(kStreamVersion);
  in.startTransaction();
  quint32 magic = 0;
  in >> magic;
  // Refused as soon as it shows it is no hand-over, before its list is
  // waited for.
  if (in.status() == QDataStream::Ok && magic != kMagic) {
    socket->abort();
    return;
  }
  QStringList paths;
  in >> paths;
  if (!in.commitTransaction()) {
    // Past the end, the rest is still on its way; anything else is no message.
    if (in.status() != QDataStream::ReadPastEnd) socket->abort();
    return;
  }
  socket->putChar(kReceived);
  socket->flush();
  socket->disconnectFromServer();
  emit pathsReceived(paths);
}
