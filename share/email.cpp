// E-mail hand-off. Everything that waits on another program (the portal's
// answer, the command's exit) is asynchronous, so the program stays responsive
// while a mail client with no window yet takes its time.
#include "share/email.h"

#include <QCoreApplication>
#include <QCursor>
#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDBusMetaType>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QDBusReply>
#include <QDBusUnixFileDescriptor>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QPointer>
#include <QProcess>
#include <QStandardPaths>
#include <QTextStream>
#include <QUrl>
#include <functional>
#include <utility>

#include "photo/dib.h"
#include "photo/document.h"
#include "photo/photofiles.h"
#include "photo/photometa.h"
#include "photo/prompt.h"
#include "photo/settings.h"
#include "photo/waitcursor.h"
#include "share/desktopentry.h"
#include "share/tempfiles.h"

const char kMailNotFound[] =
    "Unable to find a mail program. Please check to see if one is set up on your machine.";
const char kMailProgramFailed[] = "The mail program could not be started.";
const char kMailSendFailed[] = "The mail program failed to send the message.";
const char kMailCopyMessage[] =
    "The photo will be attached to a new e-mail message as a copy. The photo on your computer "
    "is not changed.";
const char kMailLeaveOutPrivate[] = "Leave out location and camera serial number";

namespace {

constexpr char kPortalService[] = "org.freedesktop.portal.Desktop";
constexpr char kPortalPath[] = "/org/freedesktop/portal/desktop";
constexpr char kPortalEmail[] = "org.freedesktop.portal.Email";
constexpr char kPortalRequest[] = "org.freedesktop.portal.Request";
// Long enough for a portal that has to be started first.
constexpr int kPortalProbeMs = 5000;

// xdg-email's exit codes that say no mail client was there, or that the
// command line itself was wrong.
constexpr int kXdgSyntaxError = 1;
constexpr int kXdgToolMissing = 3;

// The portal answers when its service is on the session bus, or can be
// started there, and its e-mail interface reports a version.
bool PortalAnswers() {
  QDBusConnection bus = QDBusConnection::sessionBus();
  if (!bus.isConnected()) return false;
  QDBusConnectionInterface *daemon = bus.interface();
  const QDBusReply<bool> running = daemon->isServiceRegistered(kPortalService);
  if (!running.isValid()) return false;
  if (!running.value()) {
    const QDBusReply<QStringList> startable = daemon->activatableServiceNames();
    if (!startable.isValid() || !startable.value().contains(kPortalService)) return false;
  }
  QDBusMessage get = QDBusMessage::createMethodCall(kPortalService, kPortalPath,
                                                    "org.freedesktop.DBus.Properties", "Get");
  get << QString(kPortalEmail) << QString("version");
  const QDBusMessage reply = bus.call(get, QDBus::Block, kPortalProbeMs);
  return reply.type() == QDBusMessage::ReplyMessage;
}

// The desktop ids the user's mimeapps.list files name for mailto: links, the
// first file that names any winning.
QStringList DefaultMailClients() {
  QStringList files;
  QString config = qEnvironmentVariable("XDG_CONFIG_HOME");
  if (config.isEmpty()) config = QDir::homePath() + "/.config";
  QString configDirs = qEnvironmentVariable("XDG_CONFIG_DIRS");
  if (configDirs.isEmpty()) configDirs = "/etc/xdg";
  QString data = qEnvironmentVariable("XDG_DATA_HOME");
  if (data.isEmpty()) data = QDir::homePath() + "/.local/share";
  QString dataDirs = qEnvironmentVariable("XDG_DATA_DIRS");
  if (dataDirs.isEmpty()) dataDirs = "/usr/local/share:/usr/share";
  const QStringList desktops =
      qEnvironmentVariable("XDG_CURRENT_DESKTOP").toLower().split(':', Qt::SkipEmptyParts);
  auto addFolder = [&](const QString &folder) {
    for (const QString &desktop : desktops)
      files << folder + '/' + desktop + "-mimeapps.list";
    files << folder + "/mimeapps.list";
  };
  addFolder(config);
  for (const QString &dir : configDirs.split(':', Qt::SkipEmptyParts))
    addFolder(dir);
  addFolder(data + "/applications");
  for (const QString &dir : dataDirs.split(':', Qt::SkipEmptyParts))
    addFolder(dir + "/applications");

  for (const QString &path : files) {
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly | QIODevice::Text)) continue;
    QTextStream in(&file);
    bool defaults = false;
    while (!in.atEnd()) {
      const QString line = in.readLine().trimmed();
      if (line.startsWith('[')) {
        defaults = line == "[Default Applications]";
      } else if (defaults && line.startsWith("x-scheme-handler/mailto=")) {
        const QStringList ids = line.section('=', 1).split(';', Qt::SkipEmptyParts);
        if (!ids.isEmpty()) return ids;
      }
    }
  }
  return {};
}

// The default mail client's command when that client is Thunderbird.
bool FindThunderbird(CDesktopCommand *command) {
  for (const QString &id : DefaultMailClients()) {
    const QString entry = FindDesktopEntry(id);
    CDesktopCommand candidate;
    if (entry.isEmpty() || !ReadDesktopCommand(entry, &candidate)) continue;
    const bool named = id.contains("thunderbird", Qt::CaseInsensitive) ||
                       QFileInfo(candidate.program).fileName().startsWith("thunderbird");
    if (!named) return false;  // the default client is another program
    *command = candidate;
    return true;
  }
  return false;
}

// Waits for the portal's Response to one request.
class PortalRequest : public QObject {
  Q_OBJECT

 public:
  explicit PortalRequest(std::function<void(uint)> done) : done_(std::move(done)) {}

  bool Listen(const QString &path) {
    if (paths_.contains(path)) return true;
    paths_ << path;
    return QDBusConnection::sessionBus().connect(kPortalService, path, kPortalRequest, "Response",
                                                 this, SLOT(OnResponse(uint, QVariantMap)));
  }
  void Fail() { Done(2); }

 public slots:
  void OnResponse(uint response, const QVariantMap &) { Done(response); }

 private:
  void Done(uint response) {
    if (finished_) return;
    finished_ = true;
    for (const QString &path : paths_)
      QDBusConnection::sessionBus().disconnect(kPortalService, path, kPortalRequest, "Response",
                                               this, SLOT(OnResponse(uint, QVariantMap)));
    done_(response);
    deleteLater();
  }

  std::function<void(uint)> done_;
  QStringList paths_;
  bool finished_ = false;
};

QString Recorded(const QString &program, const QStringList &arguments) {
  CDesktopCommand command;
  command.program = program;
  command.arguments = arguments;
  return command.ToString();
}

}  // namespace

QStringList CMailRoute::ArgumentsFor(const QString &attachment) const {
  QStringList out = arguments;
  if (thunderbird) {
    out << "-compose"
        << "attachment='" + QUrl::fromLocalFile(attachment).toString(QUrl::FullyEncoded) + "'";
  } else {
    out << "--attach" << attachment;
  }
  return out;
}

CMailRoute FindMailRoute() {
  CMailRoute route;
  if (PortalAnswers()) {
    route.kind = CMailRoute::kPortal;
    return route;
  }
  CDesktopCommand thunderbird;
  if (FindThunderbird(&thunderbird)) {
    route.kind = CMailRoute::kCommand;
    route.program = thunderbird.program;
    route.arguments = thunderbird.arguments;
    route.thunderbird = true;
    return route;
  }
  const QString xdgEmail = QStandardPaths::findExecutable("xdg-email");
  if (!xdgEmail.isEmpty()) {
    route.kind = CMailRoute::kCommand;
    route.program = xdgEmail;
  }
  return route;
}

QString AttachmentNameFor(const QString &tmpPath) {
  QString name = tmpPath;
  qsizetype at = name.indexOf(".tmp");
  if (at < 0) at = name.indexOf(".TMP");
  if (at >= 0) name = name.left(at) + ".jpg";
  return name;
}

CMailHandOff &CMailHandOff::Instance() {
  static CMailHandOff *instance = new CMailHandOff;
  return *instance;
}

CMailHandOff::CMailHandOff() {
  qDBusRegisterMetaType<QList<QDBusUnixFileDescriptor>>();
  if (QCoreApplication *app = QCoreApplication::instance())
    connect(app, &QCoreApplication::aboutToQuit, this, &CMailHandOff::RemoveKeptAttachments);
}

void CMailHandOff::RemoveKeptAttachments() {
  for (const QString &path : std::as_const(kept_))
    QFile::remove(path);
  kept_.clear();
}

void CMailHandOff::Start(const CMailRoute &route, const QString &attachment) {
  ++running_;
  if (route.kind == CMailRoute::kPortal)
    StartPortal(attachment);
  else
    StartCommand(route, attachment);
}

void CMailHandOff::Finish(const QString &attachment, bool ok, bool cancelled, const char *message) {
  --running_;
  if (ok)
    kept_ << attachment;
  else
    QFile::remove(attachment);
  if (message) AfxMessageBox(QString::fromUtf8(message));
  emit finished(attachment, ok, cancelled);
}

void CMailHandOff::StartPortal(const QString &attachment) {
  KorvelSettings()->setValue("mail/command", QString(kPortalEmail) + ".ComposeEmail");
  auto *request = new PortalRequest([this, attachment](uint response) {
    // 0: handed to the mail program; 1: the user cancelled; else a failure.
    if (response == 0)
      Finish(attachment, true, false, nullptr);
    else if (response == 1)
      Finish(attachment, false, true, nullptr);
    else
      Finish(attachment, false, false, kMailSendFailed);
  });

  QFile file(attachment);
  if (!file.open(QIODevice::ReadOnly)) return request->Fail();
  QDBusConnection bus = QDBusConnection::sessionBus();
  // The request's object path can be known before the call, so the answer
  // cannot slip past between the call's reply and listening for it.
  const QString token =
      QString("korvel%1_%2").arg(QCoreApplication::applicationPid()).arg(++tokens_);
  QString sender = bus.baseService().mid(1);
  sender.replace('.', '_');
  request->Listen(QString("%1/request/%2/%3").arg(kPortalPath, sender, token));

  QVariantMap options;
  options["handle_token"] = token;
  const QList<QDBusUnixFileDescriptor> fds{QDBusUnixFileDescriptor(file.handle())};
  options["attachment_fds"] = QVariant::fromValue(fds);
  QDBusMessage call =
      QDBusMessage::createMethodCall(kPortalService, kPortalPath, kPortalEmail, "ComposeEmail");
  call << QString() << options;
  auto *watcher = new QDBusPendingCallWatcher(bus.asyncCall(call), this);
  // The answer may overtake the call's reply, and the request goes with it.
  const QPointer<PortalRequest> waiting(request);
  connect(watcher, &QDBusPendingCallWatcher::finished, this,
          [waiting, watcher](QDBusPendingCallWatcher *) {
            watcher->deleteLater();
            PortalRequest *request = waiting.data();
            if (!request) return;
            const QDBusPendingReply<QDBusObjectPath> reply = *watcher;
            if (reply.isError())
              request->Fail();
            else if (!request->Listen(reply.value().path()))
              request->Fail();
          });
  // The descriptor travelled with the call; the file may be closed here.
}

void CMailHandOff::StartCommand(const CMailRoute &route, const QString &attachment) {
  const QStringList arguments = route.ArgumentsFor(attachment);
  KorvelSettings()->setValue("mail/command", Recorded(route.program, arguments));
  auto *process = new QProcess(this);
  process->setProgram(route.program);
  process->setArguments(arguments);
  // The mail program's output is not ours to show.
  process->setStandardOutputFile(QProcess::nullDevice());
  process->setStandardErrorFile(QProcess::nullDevice());
  connect(process, &QProcess::errorOccurred, this,
          [this, process, attachment](QProcess::ProcessError error) {
            if (error != QProcess::FailedToStart) return;
            Finish(attachment, false, false, kMailProgramFailed);
            process->deleteLater();
          });
  connect(process, &QProcess::finished, this,
          [this, process, route, attachment](int code, QProcess::ExitStatus status) {
            process->deleteLater();
            if (status != QProcess::NormalExit)
              return Finish(attachment, false, false, kMailProgramFailed);
            if (code == 0) return Finish(attachment, true, false, nullptr);
            if (!route.thunderbird && code == kXdgToolMissing)
              return Finish(attachment, false, false, kMailNotFound);
            if (!route.thunderbird && code == kXdgSyntaxError)
              return Finish(attachment, false, false, kMailProgramFailed);
            Finish(attachment, false, false, kMailSendFailed);
          });
  process->start();
}

namespace {

// The hand-off the desktop offers, or kNone after telling the user there is
// none that can run. No names are made before the hand-off is known to be
// there, so a machine without a mail program is left without temporary files.
CMailRoute UsableMailRoute() {
  CWaitCursor wait;
  const CMailRoute route = FindMailRoute();
  if (route.kind == CMailRoute::kNone) {
    wait.Restore();
    AfxMessageBox(kMailNotFound);
    return {};
  }
  if (route.kind == CMailRoute::kCommand && !QFileInfo(route.program).isExecutable() &&
      QStandardPaths::findExecutable(route.program).isEmpty()) {
    wait.Restore();
    AfxMessageBox(kMailProgramFailed);
    return {};
  }
  return route;
}

// Saves the current photo as the attachment, carrying its metadata, without
// the position and serial numbers when `withoutPrivate`; empty after a failure
// told to the user. The attachment never goes through a file already at its
// name: another temporary name is made until one is free.
QString SaveAttachment(const CKorvelAppDoc *doc, const CDib &photo, bool withoutPrivate) {
  CWaitCursor wait;
  const QString tmp =
      QDir::tempPath().isEmpty() ? QString() : MakeTempFileName(CKorvelAppDoc::TempPath(), "zib");
  if (tmp.isEmpty()) {
    wait.Restore();
    AfxMessageBox("Unable to e-mail the image. Please try again");
    return {};
  }
  bool firstName = true;
  const auto nextName = [&] {
    const QString name = AttachmentNameFor(
        std::exchange(firstName, false) ? tmp : MakeTempFileName(CKorvelAppDoc::TempPath(), "zib"));
    ShareKeptMeta(doc->PathAt(doc->CurrentIndex()), name, withoutPrivate);
    return name;
  };
  return SaveNewPicture(FormatForExtension("jpg"), nextName, photo,
                        doc->ResolutionAt(doc->CurrentIndex()));
}

}  // namespace

void SendPhotoByEmail(const CKorvelAppDoc *doc) {
  if (doc->CurrentIndex() == -1) {
    AfxMessageBox("Please select an image that you would like to e-mail");
    return;
  }
  const CDib photo = doc->ImageAt(doc->CurrentIndex());
  if (!photo.Header()) {
    AfxMessageBox("Unable to e-mail the image. Please try again");
    return;
  }
  const CMailRoute route = UsableMailRoute();
  if (route.kind == CMailRoute::kNone) return;
  // Whether this photo goes without its position and serial numbers is asked
  // each time, the answer becoming the default for the next photo shared.
  const KorvelPrompt::CheckAnswer privacy = KorvelPrompt::Current().MessageBoxWithCheck(
      kMailCopyMessage, kMailLeaveOutPrivate, StripPrivateOnShare(), KorvelPrompt::MB_OKCANCEL);
  if (privacy.result != KorvelPrompt::IDOK) return;
  KorvelSettings()->setValue("privacy/stripLocation", privacy.checked);
  // After a failed save nothing is handed over, since the hand-off deletes
  // the file it was given.
  const QString attachment = SaveAttachment(doc, photo, privacy.checked);
  if (!attachment.isEmpty()) CMailHandOff::Instance().Start(route, attachment);
}

#include "email.moc"
