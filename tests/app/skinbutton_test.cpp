// The form's artwork and the button that shows it: every bitmap the form asks for is
// embedded at its control's size, the generator repeats itself exactly, and a skin
// button paints the framework's choice of skin for each state.
#include <gtest/gtest.h>

#include <QDir>
#include <QDirIterator>
#include <QMap>
#include <QPainter>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>
#include <vector>

#include "app/formcontrols.h"
#include "app/skinbutton.h"

namespace {

// Form 101's skinned buttons, from the form's own table.
std::vector<FormControl> SkinnedControls() {
  std::vector<FormControl> skinned;
  for (int i = 0; i < kFormControlCount; ++i)
    if (kFormControls[i].kind == FormKind::Skinned) skinned.push_back(kFormControls[i]);
  return skinned;
}

QSize Pixels(const FormControl &control) {
  return {DluToPixelsX(control.width), DluToPixelsY(control.height)};
}

QImage Skin(int bitmap) {
  return QImage(QStringLiteral(":/skins/%1.png").arg(bitmap))
      .convertToFormat(QImage::Format_ARGB32_Premultiplied);
}

QImage Grab(QWidget &widget) {
  return widget.grab().toImage().convertToFormat(QImage::Format_ARGB32_Premultiplied);
}

// What a skin looks like on a widget: its rounded corners let the window show through,
// in the colour `widget` paints its window background.
QImage OnWindow(int bitmap, const QWidget &widget) {
  QImage composed(Skin(bitmap).size(), QImage::Format_ARGB32_Premultiplied);
  composed.fill(widget.palette().color(QPalette::Window));
  QPainter painter(&composed);
  painter.drawImage(0, 0, Skin(bitmap));
  return composed;
}

// Empty when the two pictures match, else where and how they first differ.
std::string Difference(const QImage &actual, const QImage &expected) {
  if (actual.size() != expected.size()) {
    return QStringLiteral("%1x%2 instead of %3x%4")
        .arg(actual.width())
        .arg(actual.height())
        .arg(expected.width())
        .arg(expected.height())
        .toStdString();
  }
  for (int y = 0; y < actual.height(); ++y) {
    for (int x = 0; x < actual.width(); ++x) {
      if (actual.pixel(x, y) != expected.pixel(x, y)) {
        return QStringLiteral("pixel (%1, %2) is %3 instead of %4")
            .arg(x)
            .arg(y)
            .arg(actual.pixel(x, y), 8, 16, QLatin1Char('0'))
            .arg(expected.pixel(x, y), 8, 16, QLatin1Char('0'))
            .toStdString();
      }
    }
  }
  return {};
}

// Every file below `root`, by its path relative to `root`.
QMap<QString, QByteArray> Files(const QString &root) {
  QMap<QString, QByteArray> files;
  QDirIterator it(root, QDir::Files, QDirIterator::Subdirectories);
  while (it.hasNext()) {
    QFile file(it.next());
    if (file.open(QIODevice::ReadOnly))
      files.insert(QDir(root).relativeFilePath(file.fileName()), file.readAll());
  }
  return files;
}

bool RunGenerator(const QStringList &arguments) {
  QProcess generator;
  generator.start(QStringLiteral(KORVEL_SKINGEN_PATH), arguments);
  return generator.waitForFinished(60000) && generator.exitStatus() == QProcess::NormalExit &&
         generator.exitCode() == 0;
}

TEST(SkinResources, EveryFormBitmapIsEmbeddedAtItsControlsSize) {
  for (const FormControl &skin : SkinnedControls()) {
    QList<QImage> distinct;
    for (const int bitmap : skin.skins) {
      if (bitmap == 0) continue;
      const QImage image = Skin(bitmap);
      ASSERT_FALSE(image.isNull()) << "bitmap " << bitmap << " of control " << skin.id;
      EXPECT_EQ(image.size(), Pixels(skin)) << "bitmap " << bitmap << " of control " << skin.id;
      // A face, not an empty frame: the middle of every skin is opaque.
      EXPECT_EQ(qAlpha(image.pixel(image.width() / 2, image.height() / 2)), 255) << bitmap;
      if (!distinct.contains(image)) distinct.append(image);
    }
    // Each state has a look of its own, so a bitmap number repeated in the table is the
    // only way two states of one button may look the same.
    QList<int> numbers;
    for (const int bitmap : skin.skins) {
      if (bitmap != 0 && !numbers.contains(bitmap)) numbers.append(bitmap);
    }
    EXPECT_EQ(distinct.size(), numbers.size()) << "control " << skin.id;
  }

  EXPECT_EQ(Skin(271).isNull(), false) << "the Get Photo dialog's picture";
  EXPECT_EQ(QImage(QStringLiteral(":/skins/form.png")).size(), QSize(800, 585));
  EXPECT_EQ(QImage(QStringLiteral(":/icons/korvelapp.png")).size(), QSize(256, 256));
}

TEST(SkinGenerator, DrawsTheSameBytesOnEveryRunAndEverySkinItEmbeds) {
  QTemporaryDir first;
  QTemporaryDir second;
  ASSERT_TRUE(first.isValid() && second.isValid());
  ASSERT_TRUE(RunGenerator({first.path()}));
  ASSERT_TRUE(RunGenerator({second.path()}));

  const QMap<QString, QByteArray> once = Files(first.path());
  const QMap<QString, QByteArray> again = Files(second.path());
  ASSERT_FALSE(once.isEmpty());
  EXPECT_EQ(once.keys(), again.keys());
  for (auto it = once.cbegin(); it != once.cend(); ++it) {
    EXPECT_TRUE(it.value() == again.value(it.key())) << qPrintable(it.key()) << " differs";
  }

  // The embedded skins are the generator's whole output, nothing left over or missing.
  QStringList generated = QDir(first.filePath(QStringLiteral("skins"))).entryList(QDir::Files);
  QStringList embedded = QDir(QStringLiteral(":/skins")).entryList(QDir::Files);
  generated.sort();
  embedded.sort();
  EXPECT_EQ(generated, embedded);
  for (const char *icon : {"icons/korvelapp.png", "icons/hicolor/48x48/apps/korvelapp.png",
                           "icons/hicolor/128x128/apps/korvelapp.png"}) {
    EXPECT_TRUE(once.contains(QString::fromLatin1(icon))) << icon;
  }

  EXPECT_FALSE(RunGenerator({})) << "no output folder is a usage error";
}

TEST(SkinButton, PaintsThePressedThenFocusedThenDisabledSkinAsTheFrameworkDoes) {
  QWidget window;
  window.resize(200, 100);
  CSkinButton button(&window);
  ASSERT_TRUE(button.LoadBitmaps(221, 219, 220, 270));
  button.SizeToContent();
  EXPECT_EQ(button.size(), QSize(85, 37));
  EXPECT_EQ(button.sizeHint(), QSize(85, 37));
  window.show();
  window.activateWindow();
  ASSERT_TRUE(QTest::qWaitForWindowActive(&window));
  // Activating the window hands the focus to its first button.
  button.clearFocus();

  EXPECT_EQ(Difference(Grab(button), OnWindow(221, button)), "") << "up";
  button.setDown(true);
  EXPECT_EQ(Difference(Grab(button), OnWindow(219, button)), "") << "down";
  button.setFocus();
  ASSERT_TRUE(button.hasFocus());
  EXPECT_EQ(Difference(Grab(button), OnWindow(219, button)), "") << "pressing wins over focus";
  button.setDown(false);
  EXPECT_EQ(Difference(Grab(button), OnWindow(220, button)), "") << "focus";
  button.clearFocus();
  button.setEnabled(false);
  EXPECT_EQ(Difference(Grab(button), OnWindow(270, button)), "") << "disabled";
  button.setEnabled(true);
  EXPECT_EQ(Difference(Grab(button), OnWindow(221, button)), "") << "up again";

  // A button with no focus or disabled skin shows its up skin in those states.
  CSkinButton bare(&window);
  ASSERT_TRUE(bare.LoadBitmaps(247, 245));
  bare.SizeToContent();
  bare.show();
  bare.setFocus();
  ASSERT_TRUE(bare.hasFocus());
  EXPECT_EQ(Difference(Grab(bare), OnWindow(247, bare)), "") << "focus without a focus skin";
  bare.clearFocus();
  bare.setEnabled(false);
  EXPECT_EQ(Difference(Grab(bare), OnWindow(247, bare)), "") << "disabled without a disabled skin";

  // The colour tools' chosen look is their disabled skin, the same bitmap as focus.
  CSkinButton sky(&window);
  ASSERT_TRUE(sky.LoadBitmaps(218, 216, 217, 217));
  sky.SizeToContent();
  sky.setEnabled(false);
  EXPECT_EQ(Difference(Grab(sky), OnWindow(217, sky)), "");
}

TEST(SkinButton, LoadBitmapsNeedsTheUpSkinAndReportsAnyOtherThatIsMissing) {
  CSkinButton button;
  EXPECT_FALSE(button.LoadBitmaps(0));
  EXPECT_FALSE(button.LoadBitmaps(9999, 219));

  // A missing down skin fails the load but the button works on its up skin.
  EXPECT_FALSE(button.LoadBitmaps(227, 9998));
  button.SizeToContent();
  EXPECT_EQ(button.size(), QSize(48, 42));
  button.setDown(true);
  EXPECT_EQ(Difference(Grab(button), OnWindow(227, button)), "");

  // Loading again replaces every skin, including ones the new set does not have.
  ASSERT_TRUE(button.LoadBitmaps(212, 210, 211, 211));
  ASSERT_TRUE(button.LoadBitmaps(262));
  button.SizeToContent();
  EXPECT_EQ(button.size(), QSize(75, 22));
  EXPECT_EQ(Difference(Grab(button), OnWindow(262, button)), "")
      << "down with no down skin any more";

  for (const FormControl &skin : SkinnedControls()) {
    CSkinButton sized;
    EXPECT_TRUE(sized.LoadBitmaps(skin.skins[0], skin.skins[1], skin.skins[2], skin.skins[3]))
        << "control " << skin.id;
    sized.SizeToContent();
    EXPECT_EQ(sized.size(), Pixels(skin)) << "control " << skin.id;
  }
}

TEST(SkinButton, WithoutSkinsDrawsItsCaptionOnAFaceThatShowsItsState) {
  // Control 1022, "Edit Photo", is owner-drawn without bitmaps: 54 x 22 dialog units.
  CSkinButton button;
  button.setText(QStringLiteral("Edit Photo"));
  button.resize(81, 35);
  const QImage up = Grab(button);
  EXPECT_EQ(qAlpha(up.pixel(5, 17)), 255) << "the face fills the button";
  QList<QRgb> colours;
  for (int x = 0; x < up.width(); ++x) {
    if (!colours.contains(up.pixel(x, 17))) colours.append(up.pixel(x, 17));
  }
  EXPECT_GT(colours.size(), 3) << "a caption crosses the middle row";

  button.setDown(true);
  const QImage down = Grab(button);
  button.setDown(false);
  button.setEnabled(false);
  const QImage disabled = Grab(button);
  EXPECT_NE(down, up);
  EXPECT_NE(disabled, up);
  EXPECT_NE(disabled, down);
}

}  // namespace
