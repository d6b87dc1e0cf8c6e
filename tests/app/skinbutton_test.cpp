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
#include <algorithm>
#include <cmath>

#include "res/formcontrols.h"
#include "views/skinbutton.h"

namespace {

QImage Skin(int bitmap, const char *scale = "") {
  return QImage(QStringLiteral(":/skins/%1%2.png").arg(bitmap).arg(QLatin1String(scale)))
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
      EXPECT_EQ(Skin(bitmap, "@2x").size(), pixels * 2) << bitmap;
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
  EXPECT_EQ(Skin(271, "@2x").size(), Skin(271).size() * 2) << "the Get Photo dialog's picture";
  EXPECT_EQ(QImage(QStringLiteral(":/skins/form.png")).size(), QSize(800, 585));
  EXPECT_EQ(QImage(QStringLiteral(":/skins/form@2x.png")).size(), QSize(1600, 1170));
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
  EXPECT_TRUE(once.contains(QStringLiteral("icons/korvelapp.png")));
  for (const int side : {16, 22, 24, 32, 48, 64, 128, 256}) {
    const QString icon = QStringLiteral("icons/hicolor/%1x%1/apps/korvelapp.png").arg(side);
    EXPECT_EQ(QImage::fromData(once.value(icon)).size(), QSize(side, side)) << side;
  }
  const QByteArray svg = once.value(QStringLiteral("icons/hicolor/scalable/apps/korvelapp.svg"));
  EXPECT_TRUE(svg.contains("<svg") && svg.contains("viewBox=\"0 0 256 256\""))
      << svg.left(200).toStdString();
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

// The mean width, in logical pixels, of the edges a grab at `ratio` device pixels to
// the logical pixel shows: along every row, each run of pixels that keeps rising (or
// falling) by at least a third of the full range, counted by the pixels strictly
// between its first tenth and last tenth. A picture enlarged from one drawn at a
// smaller scale repeats or blends pixels and keeps its edges as wide as the small one.
double MeanEdgeWidth(const QImage &grab, qreal ratio) {
  const QImage grey = grab.convertToFormat(QImage::Format_Grayscale8);
  int pixels = 0, edges = 0;
  for (int y = 0; y < grey.height(); ++y) {
    const uchar *row = grey.constScanLine(y);
    for (int x = 0; x + 1 < grey.width();) {
      const int sign = (row[x + 1] > row[x]) - (row[x + 1] < row[x]);
      if (sign == 0) {
        ++x;
        continue;
      }
      // A flat pixel inside a run is allowed once per device pixel beyond the first,
      // as an enlargement by `ratio` repeats each step's pixel.
      int end = x + 1, flat = 0;
      while (end + 1 < grey.width()) {
        const int d = (row[end + 1] > row[end]) - (row[end + 1] < row[end]);
        if (d == -sign || (d == 0 && ++flat >= ratio)) break;
        if (d != 0) flat = 0;
        ++end;
      }
      while (row[end] == row[end - 1])
        --end;
      const int from = row[x], to = row[end];
      if (std::abs(to - from) >= 85) {
        ++edges;
        for (int i = x; i <= end; ++i) {
          const double part = double(row[i] - from) / (to - from);
          if (part > 0.1 && part < 0.9) ++pixels;
        }
      }
      x = end;
    }
  }
  return edges == 0 ? 0 : pixels / ratio / edges;
}

// The buttons of the top bar drawn for a screen of `ratio`, over the window colour.
QImage TopBar(qreal ratio) {
  QWidget window;
  window.setFixedSize(400, 40);
  QList<CSkinButton *> buttons;
  int x = 0;
  for (const int id : {1014, 1015, 1037, 1032, 1017}) {
    const FormControl &c =
        *std::find_if(kFormControls, kFormControls + kFormControlCount,
                      [id](const FormControl &control) { return control.id == id; });
    auto *button = new CSkinButton(&window);
    button->LoadBitmaps(c.skins[0], c.skins[1], c.skins[2], c.skins[3]);
    button->SizeToContent();
    button->move(x, 0);
    x += button->width();
  }
  QPixmap grab(window.size() * ratio);
  grab.setDevicePixelRatio(ratio);
  grab.fill(window.palette().color(QPalette::Window));
  window.render(&grab, QPoint(), QRegion(), QWidget::DrawChildren);
  return grab.toImage();
}

TEST(SkinButton, OnADoubleDensityScreenEdgesAreNarrowerThanOnAPlainOne) {
  const QImage plain = TopBar(1), dense = TopBar(2);
  ASSERT_EQ(dense.size(), plain.size() * 2);
  const double plainWidth = MeanEdgeWidth(plain, 1), denseWidth = MeanEdgeWidth(dense, 2);
  EXPECT_GT(plainWidth, 0.3) << "the plain artwork's edges are smoothed";
  EXPECT_LT(denseWidth, 0.85 * plainWidth) << plainWidth << " against " << denseWidth;

  // The same artwork enlarged instead of drawn at twice the pixels is no narrower.
  for (const auto mode : {Qt::FastTransformation, Qt::SmoothTransformation}) {
    const QImage enlarged = plain.scaled(plain.size() * 2, Qt::IgnoreAspectRatio, mode);
    EXPECT_GT(MeanEdgeWidth(enlarged, 2), 0.95 * plainWidth) << mode;
  }
}

}  // namespace
