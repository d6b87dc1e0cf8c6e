// One window per user and display. The first launch listens on a local
// socket; a later one hands its photos to it and leaves, and the first opens
// them in its own window.
#pragma once

#include <QLocalServer>
#include <QObject>
#include <QStringList>

class QLocalSocket;

class CSingleInstance : public QObject {
  Q_OBJECT

 public:
  // What a launch turned out to be.
  enum Role {
    kHandedOver,  // another instance took the photos: this one should leave
    kFirst,       // this is the instance, listening for later launches
    kAlone,       // no socket could be made: run, but nobody can hand over
  };

  // The socket for this user on this display: in the user's runtime folder
  // when there is one, else in the temporary folder with the user id in its name.
  static QString DefaultServerName();
  // Hands `paths` to the instance listening at `serverName` and waits for it
  // to confirm them. False when nobody answers in `timeoutMs`.
  static bool HandOver(const QString &serverName, const QStringList &paths, int timeoutMs = 5000);

  explicit CSingleInstance(const QString &serverName, QObject *parent = nullptr);

  // Hands `paths` to a running instance, or else becomes the instance.
  Role Start(const QStringList &paths);
  // Listens at the name; a socket left behind by an instance that is gone is
  // removed first. False when a live instance holds the name, or on failure.
  bool Listen();
  bool IsListening() const { return server_.isListening(); }

 signals:
  // The absolute paths a later launch handed over, in its order.
  void pathsReceived(const QStringList &paths);

 private:
  void Accept();
  void Read(QLocalSocket *socket);

  QString name_;
  QLocalServer server_;
};
