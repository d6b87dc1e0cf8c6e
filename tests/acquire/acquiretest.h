// Helpers of the acquisition tests: the stand-in TWAIN manager and source put
// in place through the environment (and everything they were told undone
// afterwards), the triplet log the manager keeps, and acting on a modal
// dialog once it shows.
#pragma once

#include <gtest/gtest.h>

#include <QApplication>
#include <QByteArray>
#include <QDialog>
#include <QElapsedTimer>
#include <QEvent>
#include <QFile>
#include <QTemporaryDir>
#include <QTimer>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <tuple>
#include <vector>

#include "acquire/twainsession.h"

// How the source's notifications travel: version 2 manager, source answering
// events (as the standard allows); version 1 manager, events only; version 2
// manager with the source announcing through the callback from a thread.
enum class Delivery { kDefault, kEvents, kCallback };

class TwainEnvironment {
 public:
  explicit TwainEnvironment(Delivery delivery = Delivery::kDefault) {
    Set("KORVEL_TWAIN_DSM", KORVEL_TEST_DSM_PATH);
    Set("KORVEL_TEST_TWAIN_SOURCE", KORVEL_TEST_SOURCE_PATH);
    Set("KORVEL_TEST_TWAIN_LOG", (log_.path() + "/triplets.log").toUtf8());
    if (delivery == Delivery::kEvents) Set("KORVEL_TEST_TWAIN_VERSION1", "1");
    if (delivery == Delivery::kCallback) Set("KORVEL_TEST_DELIVERY", "callback");
    // Every case starts from the manager's default source.
    CTwainSession::SetSourceIdentity(TW_IDENTITY{});
  }
  ~TwainEnvironment() {
    for (const auto &[name, value] : saved_) {
      if (value.isNull())
        qunsetenv(name.c_str());
      else
        qputenv(name.c_str(), value);
    }
  }
  TwainEnvironment(const TwainEnvironment &) = delete;
  TwainEnvironment &operator=(const TwainEnvironment &) = delete;

  void Set(const char *name, const QByteArray &value) {
    if (!saved_.count(name))
      saved_[name] = qEnvironmentVariableIsSet(name) ? qgetenv(name) : QByteArray();
    qputenv(name, value);
  }
  void Unset(const char *name) {
    if (!saved_.count(name))
      saved_[name] = qEnvironmentVariableIsSet(name) ? qgetenv(name) : QByteArray();
    qunsetenv(name);
  }

  // Makes the manager fail one triplet with the given condition code, and
  // lets it succeed again.
  void Fail(TW_UINT32 dg, TW_UINT16 dat, TW_UINT16 msg, TW_UINT16 condition = TWCC_BUMMER) {
    Set("KORVEL_TEST_TWAIN_FAIL",
        QByteArray::number(dg) + "," + QByteArray::number(dat) + "," + QByteArray::number(msg));
    Set("KORVEL_TEST_TWAIN_FAIL_CC", QByteArray::number(condition));
  }
  void Succeed() { Unset("KORVEL_TEST_TWAIN_FAIL"); }

  // The application's triplets as the manager saw them: dg, dat, msg, rc.
  using Triplet = std::tuple<unsigned, unsigned, unsigned, unsigned>;
  std::vector<Triplet> Log() const {
    std::vector<Triplet> triplets;
    QFile file(log_.path() + "/triplets.log");
    if (!file.open(QIODevice::ReadOnly)) return triplets;
    for (const QByteArray &line : file.readAll().split('\n')) {
      const QList<QByteArray> fields = line.split(' ');
      if (fields.size() == 4)
        triplets.emplace_back(fields[0].toUInt(), fields[1].toUInt(), fields[2].toUInt(),
                              fields[3].toUInt());
    }
    return triplets;
  }
  void ClearLog() { QFile::remove(log_.path() + "/triplets.log"); }

 private:
  QTemporaryDir log_;
  std::map<std::string, QByteArray> saved_;
};

// Acts on the next dialog that shows, once its own event loop runs; a
// failure when none showed while the object lived.
class OnNextDialog : public QObject {
 public:
  explicit OnNextDialog(std::function<void(QDialog *)> act) : act_(std::move(act)) {
    qApp->installEventFilter(this);
  }
  ~OnNextDialog() override {
    if (!seen_) ADD_FAILURE() << "no dialog was shown";
  }
  OnNextDialog(const OnNextDialog &) = delete;
  OnNextDialog &operator=(const OnNextDialog &) = delete;

  bool eventFilter(QObject *watched, QEvent *event) override {
    auto *dialog = qobject_cast<QDialog *>(watched);
    if (!seen_ && dialog && event->type() == QEvent::Show) {
      seen_ = true;
      QTimer::singleShot(0, dialog, [this, dialog] { act_(dialog); });
    }
    return false;
  }

 private:
  std::function<void(QDialog *)> act_;
  bool seen_ = false;
};

// Runs the event loop until `done` holds or three seconds pass.
template <class Condition>
bool RunUntil(Condition done) {
  QElapsedTimer timer;
  timer.start();
  while (!done() && timer.elapsed() < 3000)
    QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
  return done();
}
