// The output tests run inside one QApplication on the offscreen platform,
// with settings, desktop entries and mail defaults in folders of their own,
// and no session bus unless a test brings its own: no test reaches the
// user's mail program, editor or browser.
#include <gtest/gtest.h>

#include <QApplication>
#include <QTemporaryDir>

#include "app/qtprompt.h"

int main(int argc, char **argv) {
  qputenv("QT_QPA_PLATFORM", "offscreen");
  QTemporaryDir config, data;
  qputenv("XDG_CONFIG_HOME", config.path().toUtf8());
  qputenv("XDG_CONFIG_DIRS", (config.path() + "/none").toUtf8());
  qputenv("XDG_DATA_HOME", data.path().toUtf8());
  qputenv("XDG_DATA_DIRS", (data.path() + "/none").toUtf8());
  // A test run under a bus of its own (the portal test) keeps it.
  if (!qEnvironmentVariableIsSet("KORVEL_PRIVATE_BUS"))
    qputenv("DBUS_SESSION_BUS_ADDRESS", "unix:path=/nonexistent/korvel-no-bus");
  QApplication app(argc, argv);
  // Questions nobody scripted show the real dialogs, as in the program.
  QtPrompt dialogs;
  KorvelPrompt::SetRealDialogs(&dialogs);
  testing::InitGoogleTest(&argc, argv);
  // The PortalChild cases need the private bus the portal test starts.
  if (!qEnvironmentVariableIsSet("KORVEL_PRIVATE_BUS")) {
    std::string filter = GTEST_FLAG_GET(filter);
    filter += filter.find('-') == std::string::npos ? "-PortalChild.*" : ":PortalChild.*";
    GTEST_FLAG_SET(filter, filter);
  }
  return RUN_ALL_TESTS();
}
