// The photo layer's tests run inside one application object, for the queued
// signals of the thumbnailer, with the thumbnail cache and settings in
// folders of their own so no test reads or changes the user's.
#include <gtest/gtest.h>

#include <QCoreApplication>
#include <QTemporaryDir>

int main(int argc, char **argv) {
  QTemporaryDir home;
  qputenv("XDG_CACHE_HOME", (home.path() + "/cache").toUtf8());
  qputenv("XDG_CONFIG_HOME", (home.path() + "/config").toUtf8());
  // A pixel limit the tests can reach with a small picture (read once, at
  // the raster library's first use); every other test picture is below it.
  qputenv("KORVEL_MAX_PIXELS", "400000");
  QCoreApplication app(argc, argv);
  testing::InitGoogleTest(&argc, argv);
  return RUN_ALL_TESTS();
}
