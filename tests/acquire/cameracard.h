// A memory card for libgphoto2's "Directory Browse" camera: real JPEG files
// from the test data in a DCIM folder of a temporary folder, and a text file
// the directory camera does not count as a picture.
#pragma once

#include <gtest/gtest.h>

#include <QDir>
#include <QFile>
#include <QStringList>
#include <QTemporaryDir>

#include "raster/ras.h"

// Two with a preview inside (an Exif thumbnail), one without.
inline const QStringList kCardFiles = {"imagers__images_jpg_progressive_cat.jpg",
                                       "ljt__testorig.jpg", "pillow__pil_sample_cmyk.jpg"};

inline uint32_t WidthOf(const QString &path) {
  RasDesc desc{};
  return RasGetInfo(QFile::encodeName(path).constData(), &desc) == RasOk ? desc.width : 0;
}

struct Card {
  explicit Card(const QStringList &files = kCardFiles) {
    QDir(dir.path()).mkpath("DCIM/100KORVL");
    for (const QString &name : files)
      EXPECT_TRUE(QFile::copy(KORVEL_TESTDATA_DIR "/jpeg/" + name, File(name)));
    QFile notes(dir.path() + "/notes.txt");
    EXPECT_TRUE(notes.open(QIODevice::WriteOnly));
    notes.write("not a picture");
  }
  QString Folder() const { return dir.path() + "/DCIM/100KORVL"; }
  QString File(const QString &name) const { return Folder() + "/" + name; }
  QString Port() const { return "disk:" + dir.path(); }
  QTemporaryDir dir;
};
