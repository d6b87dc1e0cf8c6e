// E-mail: the current photo saved as a temporary JPEG and handed, as the one
// attachment of a new message, to the user's mail program.
//
// The hand-off takes the first of these that is there:
//   1. the desktop's e-mail portal (org.freedesktop.portal.Email) on the
//      session bus, given the attachment as an open file;
//   2. the default mail client's own command line when it is Thunderbird
//      ("-compose attachment='file:///...'");
//   3. xdg-email --attach FILE.
// The setting mail/command records the hand-off used last. A hand-off
// finishes before the user has sent the message, and the mail program may
// read the attachment only then, so a handed-off attachment stays until the
// program ends; one whose hand-off failed or was cancelled goes at once.
#pragma once

#include <QObject>
#include <QString>
#include <QStringList>

class CKorvelAppDoc;
class QProcess;

// The user-visible outcomes of the mail system, as the messages say them.
extern const char kMailNotFound[];
extern const char kMailProgramFailed[];
extern const char kMailSendFailed[];
// The message before each e-mail, and its check box.
extern const char kMailCopyMessage[];
extern const char kMailLeaveOutPrivate[];

// One way of handing a file to the mail program.
struct CMailRoute {
  enum Kind { kNone, kPortal, kCommand };
  Kind kind = kNone;
  QString program;  // kCommand: the program and the arguments before the file
  QStringList arguments;
  bool thunderbird = false;  // the file goes in a "-compose attachment=" argument

  // The arguments that hand over `attachment`.
  QStringList ArgumentsFor(const QString &attachment) const;
};

// The hand-off the desktop offers now, in the order above.
CMailRoute FindMailRoute();

// The attachment name for an empty temporary file `tmpPath`: cut at ".tmp"
// (else ".TMP") and ".jpg" appended; the .tmp file itself stays.
QString AttachmentNameFor(const QString &tmpPath);

// Runs the hand-offs and keeps the attachments they handed over until the
// program ends. There is one, living as long as the application.
class CMailHandOff : public QObject {
  Q_OBJECT

 public:
  static CMailHandOff &Instance();

  // Hands `attachment` over by `route`; the outcome arrives later through
  // finished(), after any failure was told to the user.
  void Start(const CMailRoute &route, const QString &attachment);

  // Hand-offs still under way, and the attachments kept for the mail program.
  int Running() const { return running_; }
  QStringList KeptAttachments() const { return kept_; }
  // Deletes the kept attachments (done when the application quits).
  void RemoveKeptAttachments();

 signals:
  // `ok` when the mail program has the attachment; `cancelled` when the user
  // gave up the message.
  void finished(const QString &attachment, bool ok, bool cancelled);

 private:
  CMailHandOff();
  void StartPortal(const QString &attachment);
  void StartCommand(const CMailRoute &route, const QString &attachment);
  void Finish(const QString &attachment, bool ok, bool cancelled, const char *message);

  int running_ = 0;
  QStringList kept_;
  unsigned tokens_ = 0;
};

// The e-mail command for the document's current photo.
void SendPhotoByEmail(const CKorvelAppDoc *doc);
