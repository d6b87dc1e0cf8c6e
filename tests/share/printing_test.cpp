// Printing: the chooser and print flow, the job written to a PDF through the
// same path a printer takes, and where the photo lands on the page, measured
// on the rendered page.
#include <QPageLayout>
#include <QProcess>
#include <QRegularExpression>

#include "share/printing.h"
#include "tests/share/sharetest.h"

namespace {

// The box of pixels that are clearly not white paper.
QRect InkBox(const QImage &page) {
  QRect box;
  for (int y = 0; y < page.height(); ++y)
    for (int x = 0; x < page.width(); ++x)
      if (qGray(page.pixel(x, y)) < 235) box |= QRect(x, y, 1, 1);
  return box;
}

QString RunTool(const QString &program, const QStringList &arguments) {
  QProcess process;
  process.start(program, arguments);
  if (!process.waitForFinished(30000) || process.exitCode() != 0) return QString();
  return QString::fromUtf8(process.readAllStandardOutput());
}

using Printing = ShareTest;

TEST_F(Printing, OnePagePerSelectedPhotoPlacedByTheFormula) {
  const QRgb colours[] = {qRgb(200, 30, 30), qRgb(30, 160, 30), qRgb(30, 30, 200),
                          qRgb(160, 30, 160)};
  Add("/photos/red.jpg", colours[0], 400, 300);
  Add("/photos/green.jpg", colours[1], 300, 400);
  Add("/photos/blue.jpg", colours[2], 200, 100);
  Add("/photos/tall.jpg", colours[3], 150, 600);  // too tall at the full width
  doc->SetCurrentIndex(0);
  const QString pdf = dialogs.printerPdf = temp.path() + "/job.pdf";
  Run(1032);  // the current photo alone: one page
  EXPECT_TRUE(RunTool("pdfinfo", {pdf})
                  .contains(QRegularExpression("Title: +KorvelApp Image\n(.*\n)*Pages: +1\n")));

  // Four selected: a page each in selection order, each photo at the
  // printable area's top-left corner, as wide as it, height by the formula;
  // the tall one as high as the area, centred across, all of it on the page.
  QRectF area;  // points
  int horzRes = 0, vertRes = 0, resolution = 0;
  dialogs.onPrinter = [&](QPrinter *printer) {
    printer->setPageSize(QPageSize(QPageSize::A4));
    printer->setPageMargins(QMarginsF(15, 20, 15, 20), QPageLayout::Millimeter);
    area = printer->pageRect(QPrinter::Point);
    horzRes = printer->width();
    vertRes = printer->height();
    resolution = printer->resolution();
  };
  doc->Selection() = {1, 3, 2, 0};
  Run(1032);
  ASSERT_TRUE(RunTool("pdfinfo", {pdf}).contains(QRegularExpression("Pages: +4\n")));
  ASSERT_GT(resolution, 0);
  const double scale = 100 / 72.0;  // rendered at 100 dpi
  for (int page = 1; page <= 4; ++page) {
    SCOPED_TRACE(page);
    const int index = doc->Selection()[page - 1];
    const CDib &photo = doc->ImageAt(index);
    const QString n = QString::number(page), png = temp.path() + "/page" + n;
    RunTool("pdftoppm", {"-r", "100", "-f", n, "-l", n, "-singlefile", "-png", pdf, png});
    const QImage rendered = QImage(png + ".png").convertToFormat(QImage::Format_RGB32);
    const QRect box = InkBox(rendered);
    const QRect printed = PrintedRect(int(photo.Width()), int(photo.Height()), horzRes, vertRes,
                                      resolution, resolution);
    const double toRendered = 72.0 / resolution * scale;
    const QRectF want(area.left() * scale + printed.left() * toRendered, area.top() * scale,
                      printed.width() * toRendered, printed.height() * toRendered);
    EXPECT_LE(want.bottom(), area.bottom() * scale + 0.5);
    EXPECT_NEAR(double(box.width()) / box.height(), double(photo.Width()) / photo.Height(), 0.02);
    EXPECT_NEAR(box.left(), want.left(), 1.5);
    EXPECT_NEAR(box.top(), want.top(), 1.5);
    EXPECT_NEAR(box.right() + 1, want.right(), 1.5);
    EXPECT_NEAR(box.bottom() + 1, want.bottom(), 1.5);
    ExpectColour(rendered.pixel(box.center()), colours[index], 12);
  }
  EXPECT_TRUE(prompt.messages.isEmpty());
}

// The photo keeps its proportions in inches on a device finer across than
// down; one too tall for the page at the full width fills the height instead,
// centred across, rather than running past the bottom.
TEST_F(Printing, PlacementFollowsBothResolutionsAndThePageHeight) {
  EXPECT_EQ(PrintedRect(9, 7, 1000, 1400, 300, 300), QRect(0, 0, 1000, 777));  // 777.7 truncated
  EXPECT_EQ(PrintedRect(7, 9, 1000, 1000, 300, 300), QRect(111, 0, 777, 1000));
  EXPECT_EQ(PrintedRect(10, 14, 1000, 1400, 300, 300), QRect(0, 0, 1000, 1400));  // exactly fits
  EXPECT_EQ(PrintedRect(0, 14, 1000, 1400, 300, 300), QRect());
  const struct {
    int width, height, dpiY;
    QRect ink;
  } cases[] = {{40, 30, 100, {0, 0, 1000, 375}},
               {10, 100, 200, {430, 0, 140, 1400}},
               {10, 100, 100, {360, 0, 280, 1400}},
               {40, 100, 100, {0, 0, 1000, 1250}}};
  for (const auto &c : cases) {
    SCOPED_TRACE(c.height);
    QImage device(1000, 1400, QImage::Format_RGB32);
    device.fill(Qt::white);
    device.setDotsPerMeterX(qRound(200 / 0.0254));
    device.setDotsPerMeterY(qRound(c.dpiY / 0.0254));
    CPrintDC dc(&device);
    ASSERT_TRUE(dc.StartDoc("KorvelApp Image"));
    PrintPhotoPage(dc, CDib(MakePhoto(c.width, c.height, qRgb(0, 0, 0))));
    EXPECT_EQ(dc.PagesStarted(), 1);
    dc.EndDoc();
    EXPECT_EQ(InkBox(device), c.ink);
  }
}

}  // namespace
