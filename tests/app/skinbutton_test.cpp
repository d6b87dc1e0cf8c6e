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

#include "app/formcontrols.h"
#include "app/skinbutton.h"

namespace {

QImage Skin(int bitmap) {
  return QImage(QStringLiteral(":/skins/%1.png").arg(bitmap))
      .convertToFormat(QImage::Format_ARGB32_Premultiplied);
}

// Whether `widget` shows skin `bitmap`, its rounded corners over the window colour.
bool Shows(QWidget &widget, int bitmap) {
  QImage composed(Skin(bitmap).size(), QImage::Format_ARGB32_Premultiplied);
  composed.fill(widget.palette().color(QPalette::Window));
  QPainter(&composed).drawImage(0, 0, Skin(bitmap));
  return widget.grab().toImage().convertToFormat(QImage::Format_ARGB32_Premultiplied) == composed;
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

// The generator's exit code, with `arguments`.
int RunGenerator(const QStringList &arguments) {
  return QProcess::execute(QStringLiteral(KORVEL_SKINGEN_PATH), arguments);
}

TEST(SkinResources, EveryFormBitmapIsEmbeddedAtItsControlsSizeAndLoads) {
  for (int i = 0; i < kFormControlCount; ++i) {
    const FormControl &skin = kFormControls[i];
    if (skin.kind != FormKind::Skinned) continue;
    SCOPED_TRACE(testing::Message() << "control " << skin.id);
    const QSize pixels(DluToPixelsX(skin.width), DluToPixelsY(skin.height));
    // Each state has a look of its own unless the table repeats a bitmap number.
    QList<QImage> distinct;
    QList<int> numbers;
    for (const int bitmap : skin.skins) {
      if (bitmap == 0) continue;
      const QImage image = Skin(bitmap);
      ASSERT_FALSE(image.isNull()) << bitmap;
      EXPECT_EQ(image.size(), pixels) << bitmap;
      EXPECT_EQ(qAlpha(image.pixel(image.width() / 2, image.height() / 2)), 255) << bitmap;
      if (!distinct.contains(image)) distinct.append(image);
      if (!numbers.contains(bitmap)) numbers.append(bitmap);
    }
    EXPECT_EQ(distinct.size(), numbers.size());
    CSkinButton sized;
    EXPECT_TRUE(sized.LoadBitmaps(skin.skins[0], skin.skins[1], skin.skins[2], skin.skins[3]));
    sized.SizeToContent();
    EXPECT_EQ(sized.size(), pixels);
  }
  EXPECT_FALSE(Skin(271).isNull()) << "the Get Photo dialog's picture";
  EXPECT_EQ(QImage(QStringLiteral(":/skins/form.png")).size(), QSize(800, 585));
  EXPECT_EQ(QImage(QStringLiteral(":/icons/korvelapp.png")).size(), QSize(256, 256));
}

TEST(SkinGenerator, DrawsTheSameBytesOnEveryRunAndEverySkinItEmbeds) {
  QTemporaryDir first, second;
  ASSERT_TRUE(first.isValid() && second.isValid());
  ASSERT_EQ(RunGenerator({first.path()}), 0);
  ASSERT_EQ(RunGenerator({second.path()}), 0);
  const QMap<QString, QByteArray> once = Files(first.path());
  ASSERT_FALSE(once.isEmpty());
  EXPECT_TRUE(once == Files(second.path()));
  // The embedded skins are the generator's whole output, nothing left over or missing.
  QStringList generated = QDir(first.filePath(QStringLiteral("skins"))).entryList(QDir::Files);
  QStringList embedded = QDir(QStringLiteral(":/skins")).entryList(QDir::Files);
  generated.sort();
  embedded.sort();
  EXPECT_EQ(generated, embedded);
  for (const char *icon : {"icons/korvelapp.png", "icons/hicolor/48x48/apps/korvelapp.png",
                           "icons/hicolor/128x128/apps/korvelapp.png"})
    EXPECT_TRUE(once.contains(QString::fromLatin1(icon))) << icon;
  EXPECT_EQ(RunGenerator({}), 2) << "no output folder is a usage error";
}

TEST(SkinButton, PaintsThePressedThenFocusedThenDisabledSkinAsTheFrameworkDoes) {
  QWidget window;
  window.resize(200, 100);
  CSkinButton full(&window), bare(&window), sky(&window);
  ASSERT_TRUE(full.LoadBitmaps(221, 219, 220, 270));
  ASSERT_TRUE(bare.LoadBitmaps(247, 245));           // no focus or disabled skin: the up skin shows
  ASSERT_TRUE(sky.LoadBitmaps(218, 216, 217, 217));  // chosen colour tool: disabled skin
  for (CSkinButton *button : {&full, &bare, &sky})
    button->SizeToContent();
  EXPECT_EQ(full.size(), QSize(85, 37));
  EXPECT_EQ(full.sizeHint(), QSize(85, 37));
  window.show();
  window.activateWindow();
  ASSERT_TRUE(QTest::qWaitForWindowActive(&window));

  // Button, down, focused, enabled, and the skin it shows.
  const std::tuple<CSkinButton *, bool, bool, bool, int> cases[] = {
      {&full, false, false, true, 221},  {&full, true, false, true, 219},
      {&full, true, true, true, 219},  // pressing wins over focus
      {&full, false, true, true, 220},   {&full, false, false, false, 270},
      {&full, false, false, true, 221},  {&bare, false, true, true, 247},
      {&bare, false, false, false, 247}, {&sky, false, false, false, 217},
  };
  for (size_t i = 0; i < std::size(cases); ++i) {
    SCOPED_TRACE(testing::Message() << "case " << i);
    const auto &[button, down, focus, enabled, bitmap] = cases[i];
    button->setEnabled(enabled);
    button->setDown(down);
    focus ? button->setFocus() : button->clearFocus();
    ASSERT_EQ(button->hasFocus(), focus);
    EXPECT_TRUE(Shows(*button, bitmap));
  }
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
  EXPECT_TRUE(Shows(button, 227));
  // Loading again replaces every skin, including ones the new set does not have.
  ASSERT_TRUE(button.LoadBitmaps(212, 210, 211, 211));
  ASSERT_TRUE(button.LoadBitmaps(262));
  button.SizeToContent();
  EXPECT_EQ(button.size(), QSize(75, 22));
  EXPECT_TRUE(Shows(button, 262)) << "down with no down skin any more";
}

TEST(SkinButton, WithoutSkinsDrawsItsCaptionOnAFaceThatShowsItsState) {
  CSkinButton button;  // control 1022, "Edit Photo", owner-drawn at 54 x 22 dialog units
  button.resize(81, 35);
  auto grab = [&](const QString &caption, bool down, bool enabled) {
    button.setText(caption);
    button.setDown(down);
    button.setEnabled(enabled);
    return button.grab().toImage();
  };
  const QImage up = grab("Edit Photo", false, true), down = grab("Edit Photo", true, true);
  const QImage disabled = grab("Edit Photo", false, false);
  EXPECT_EQ(qAlpha(up.pixel(5, 17)), 255) << "the face fills the button";
  EXPECT_NE(up, grab("", false, true)) << "the caption is drawn";
  EXPECT_NE(down, up);
  EXPECT_NE(disabled, up);
  EXPECT_NE(disabled, down);
}

}  // namespace
