// Helpers of the acquisition tests: the stand-in TWAIN manager and source put
// in place through the environment (and undone afterwards), the triplet log
// the manager keeps, acting on a modal dialog once it shows, and the
// application with its photo folder in a temporary folder.
#pragma once

#include <gtest/gtest.h>

#include <QApplication>
#include <QDialog>
#include <QDir>
#include <QElapsedTimer>
#include <QSettings>
#include <QTemporaryDir>
#include <QTimer>
#include <fstream>
#include <functional>
#include <map>
#include <tuple>

#include "acquire/twainsession.h"
#include "app/formview.h"
#include "app/korvelapp.h"
#include "app/mainframe.h"
#include "photo/document.h"
#include "tests/app/scriptedprompt.h"

// How the source's notifications travel: version 2 manager, source answering
// events; version 1 manager, events only; version 2 manager with the source
// announcing through the callback from a thread.
enum class Delivery { kDefault, kEvents, kCallback };

// A triplet as the manager saw it: dg, dat, msg, rc.
using Triplet = std::tuple<unsigned, unsigned, unsigned, unsigned>;
inline const Triplet kOpenDsm{DG_CONTROL, DAT_PARENT, MSG_OPENDSM, TWRC_SUCCESS},
    kOpenDs{DG_CONTROL, DAT_IDENTITY, MSG_OPENDS, TWRC_SUCCESS},
    kEnable{DG_CONTROL, DAT_USERINTERFACE, MSG_ENABLEDS, TWRC_SUCCESS},
    kEvent{DG_CONTROL, DAT_EVENT, MSG_PROCESSEVENT, TWRC_DSEVENT},
    kGet{DG_IMAGE, DAT_IMAGENATIVEXFER, MSG_GET, TWRC_XFERDONE},
    kEndXfer{DG_CONTROL, DAT_PENDINGXFERS, MSG_ENDXFER, TWRC_SUCCESS},
    kStatus{DG_CONTROL, DAT_STATUS, MSG_GET, TWRC_SUCCESS},
    kDisable{DG_CONTROL, DAT_USERINTERFACE, MSG_DISABLEDS, TWRC_SUCCESS},
    kCloseDs{DG_CONTROL, DAT_IDENTITY, MSG_CLOSEDS, TWRC_SUCCESS},
    kCloseDsm{DG_CONTROL, DAT_PARENT, MSG_CLOSEDSM, TWRC_SUCCESS};

class TwainEnvironment {
 public:
  explicit TwainEnvironment(Delivery delivery = Delivery::kDefault) {
    Set("KORVEL_TWAIN_DSM", KORVEL_TEST_DSM_PATH);
    Set("KORVEL_TEST_TWAIN_SOURCE", KORVEL_TEST_SOURCE_PATH);
    Set("KORVEL_TEST_TWAIN_LOG", (log_.path() + "/triplets.log").toUtf8());
    if (delivery == Delivery::kEvents) Set("KORVEL_TEST_TWAIN_VERSION1", "1");
    if (delivery == Delivery::kCallback) Set("KORVEL_TEST_DELIVERY", "callback");
    CTwainSession::SetSourceIdentity(TW_IDENTITY{});  // the manager's default source
  }
  ~TwainEnvironment() {
    for (const auto &[name, value] : saved_)
      Set(name.c_str(), value);
  }

  // Sets a variable, or unsets it given a null value.
  void Set(const char *name, const QByteArray &value = QByteArray()) {
    saved_.try_emplace(name, qEnvironmentVariableIsSet(name) ? qgetenv(name) : QByteArray());
    value.isNull() ? qunsetenv(name) : qputenv(name, value);
  }
  // Makes the manager fail one triplet with the given condition code.
  void Fail(TW_UINT32 dg, TW_UINT16 dat, TW_UINT16 msg, TW_UINT16 condition = TWCC_BUMMER) {
    Set("KORVEL_TEST_TWAIN_FAIL",
        QByteArray::number(dg) + "," + QByteArray::number(dat) + "," + QByteArray::number(msg));
    Set("KORVEL_TEST_TWAIN_FAIL_CC", QByteArray::number(condition));
  }
  void Succeed() { Set("KORVEL_TEST_TWAIN_FAIL"); }

  std::vector<Triplet> Log() const {
    std::vector<Triplet> triplets;
    std::ifstream file((log_.path() + "/triplets.log").toStdString());
    for (unsigned dg, dat, msg, rc; file >> dg >> dat >> msg >> rc;)
      triplets.emplace_back(dg, dat, msg, rc);
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

// Runs the event loop until `done` holds, or thirty seconds pass: a limit for
// a hang, far above what a download takes even on a loaded machine under the
// sanitizers, since the loop ends as soon as `done` holds.
template <class Condition>
bool RunUntil(Condition done) {
  QElapsedTimer timer;
  timer.start();
  while (!done() && timer.elapsed() < 30000)
    QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
  return done();
}

// The application with its photo folder in a temporary folder, and the
// given extra cameras configured.
struct AppFixture {
  explicit AppFixture(const QVariant &cameras = QVariant()) {
    qputenv("KORVEL_PHOTO_DIR", photos.path().toUtf8());
    if (cameras.isValid()) Settings().setValue("cameras/extra", cameras);
    EXPECT_TRUE(app.InitInstance({"korvelapp"}));
  }
  ~AppFixture() {
    // Nothing is asked at the end: the pictures received count as saved.
    for (int i = 0; i < Doc()->Count(); ++i)
      Doc()->ReplaceImage(i, Doc()->ImageAt(i), 0, QString());
    Settings().remove("cameras/extra");
    qunsetenv("KORVEL_PHOTO_DIR");
  }
  static QSettings Settings() {
    return QSettings("Local AppWizard-Generated Applications", "KorvelApp");
  }
  CKorvelAppDoc *Doc() const { return app.Document(); }
  CMainFrame *Frame() const { return app.MainFrame(); }
  // The form's "DownLoad Images", choosing source `source` in the Get Photo dialog.
  void GetPhoto(int source) {
    prompt.getPhoto.push_back({.result = KorvelPrompt::IDOK, .camera = true, .source = source});
    app.View()->OnCommand(1014);
  }
  QString Photo(int number) const {
    return QDir(photos.path()).filePath(QStringLiteral("Zib%1.jpg").arg(number, 3, 10, QChar('0')));
  }

  ScriptedPrompt prompt;
  QTemporaryDir photos;
  CKorvelApp app;
};
