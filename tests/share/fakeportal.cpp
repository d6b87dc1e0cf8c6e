// A stand-in for the desktop's e-mail portal, for tests on a private session
// bus: it answers ComposeEmail by copying every attachment it was given as an
// open file into the folder $FAKE_PORTAL_RECORD (attachment-N, with the path
// the descriptor had in path-N), then answers the request with the response
// code found in that folder's "response" file (0 when there is none).
#include <unistd.h>
#include <QCoreApplication>
#include <QDBusAbstractAdaptor>
#include <QDBusArgument>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusMetaType>
#include <QDBusObjectPath>
#include <QDBusUnixFileDescriptor>
#include <QFile>
#include <QFileInfo>
#include <QTimer>
#include <cstdio>

namespace {

QString Record(const QString &name) {
  return qEnvironmentVariable("FAKE_PORTAL_RECORD") + "/" + name;
}

void Write(const QString &name, const QByteArray &bytes) {
  QFile file(Record(name));
  if (file.open(QIODevice::WriteOnly)) file.write(bytes);
}

}  // namespace

class EmailPortal : public QDBusAbstractAdaptor {
  Q_OBJECT
  Q_CLASSINFO("D-Bus Interface", "org.freedesktop.portal.Email")
  Q_PROPERTY(uint version READ version)

 public:
  explicit EmailPortal(QObject *parent) : QDBusAbstractAdaptor(parent) {}
  uint version() const { return 4; }

 public slots:
  QDBusObjectPath ComposeEmail(const QString &, const QVariantMap &options,
                               const QDBusMessage &message) {
    ++calls_;
    QList<QDBusUnixFileDescriptor> fds;
    const QVariant value = options.value("attachment_fds");
    if (value.canConvert<QDBusArgument>())
      value.value<QDBusArgument>() >> fds;
    else
      fds = value.value<QList<QDBusUnixFileDescriptor>>();
    int n = 0;
    for (const QDBusUnixFileDescriptor &fd : fds) {
      ++n;
      const QString suffix = QString("%1-%2").arg(calls_).arg(n);
      Write(
          "path-" + suffix,
          QFileInfo(QString("/proc/self/fd/%1").arg(fd.fileDescriptor())).symLinkTarget().toUtf8());
      QFile file;
      if (file.open(::dup(fd.fileDescriptor()), QIODevice::ReadOnly, QFile::AutoCloseHandle) &&
          file.seek(0))
        Write("attachment-" + suffix, file.readAll());
    }
    QString sender = message.service().mid(1);
    sender.replace('.', '_');
    const QString path = QString("/org/freedesktop/portal/desktop/request/%1/%2")
                             .arg(sender, options.value("handle_token").toString());
    QFile responseFile(Record("response"));
    const uint response =
        responseFile.open(QIODevice::ReadOnly) ? responseFile.readAll().trimmed().toUInt() : 0;
    // The answer comes after the call's reply, as a portal's does.
    QTimer::singleShot(0, this, [path, response] {
      QDBusMessage signal =
          QDBusMessage::createSignal(path, "org.freedesktop.portal.Request", "Response");
      signal << response << QVariantMap();
      QDBusConnection::sessionBus().send(signal);
    });
    return QDBusObjectPath(path);
  }

 private:
  int calls_ = 0;
};

int main(int argc, char **argv) {
  QCoreApplication app(argc, argv);
  qDBusRegisterMetaType<QList<QDBusUnixFileDescriptor>>();
  QObject root;
  new EmailPortal(&root);
  QDBusConnection bus = QDBusConnection::sessionBus();
  if (!bus.registerObject("/org/freedesktop/portal/desktop", &root) ||
      !bus.registerService("org.freedesktop.portal.Desktop")) {
    std::fprintf(stderr, "fake portal: cannot register on the session bus\n");
    return 1;
  }
  std::printf("ready\n");
  std::fflush(stdout);
  return app.exec();
}

#include "fakeportal.moc"
