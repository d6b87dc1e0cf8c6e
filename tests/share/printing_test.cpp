// Printing: the chooser and print flow with their messages, the job written
// to a PDF through the same path a printer takes, and where the photo lands
// on the page, measured on the rendered page.
#include <QImage>
#include <QPageLayout>
#include <QProcess>
#include <QStandardPaths>

#include "app/strings.h"
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

class Printing : public ShareTest {
 protected:
  QString Pdf() const { return temp.path() + "/job.pdf"; }
  void ChoosePrint() { dialogs.print.push_back({CShareDialogs::IDOK, CShareDialogs::kPrintPhoto}); }
  // Page `page` (from 1) rendered at `dpi` dots per inch.
  QImage Render(int page, int dpi) const {
    const QString base = temp.path() + QString("/page%1").arg(page);
    RunTool("pdftoppm", {"-r", QString::number(dpi), "-f", QString::number(page), "-l",
                         QString::number(page), "-singlefile", "-png", Pdf(), base});
    return QImage(base + ".png").convertToFormat(QImage::Format_RGB32);
  }
  int PageCount() const {
    const QString info = RunTool("pdfinfo", {Pdf()});
    for (const QString &line : info.split('\n'))
      if (line.startsWith("Pages:")) return line.section(':', 1).trimmed().toInt();
    return -1;
  }
};

TEST_F(Printing, RefusalsAndCancels) {
  // The chooser closed: nothing, not even the help.
  const QString help = Help();
  form->OnCommand(1032);
  EXPECT_EQ(dialogs.asked, QStringList{"Print Dialog"});
  EXPECT_EQ(Help(), help);

  // Print Photo without a photo: help 1004 and the message.
  ChoosePrint();
  form->OnCommand(1032);
  EXPECT_EQ(Help(), LoadKorvelString(1004));
  EXPECT_EQ(prompt.messages, QStringList{"Please select an image that you would like to print"});

  // A photo without pixels.
  doc->AddImage(nullptr, 0, "/photos/empty.jpg");
  doc->SetCurrentIndex(0);
  ChoosePrint();
  form->OnCommand(1032);
  EXPECT_EQ(prompt.messages.last(), "Unable to print the image");
  EXPECT_FALSE(dialogs.asked.contains("Printer"));

  // The printer dialog cancelled: no job, no message.
  Add("/photos/a.jpg");
  doc->SetCurrentIndex(1);
  ChoosePrint();
  form->OnCommand(1032);
  EXPECT_EQ(dialogs.asked.last(), "Printer");
  EXPECT_FALSE(QFile::exists(Pdf()));
  EXPECT_EQ(prompt.messages.size(), 2);
  EXPECT_TRUE(launcher.urls.isEmpty());
}

TEST_F(Printing, OnePagePerSelectedPhotoPlacedByTheFormula) {
  if (QStandardPaths::findExecutable("pdftoppm").isEmpty() ||
      QStandardPaths::findExecutable("pdfinfo").isEmpty())
    GTEST_SKIP() << "poppler-utils (pdftoppm, pdfinfo) are not installed";
  const QRgb colours[] = {qRgb(200, 30, 30), qRgb(30, 160, 30), qRgb(30, 30, 200)};
  Add("/photos/red.jpg", colours[0], 400, 300);
  Add("/photos/green.jpg", colours[1], 300, 400);
  Add("/photos/blue.jpg", colours[2], 200, 100);
  doc->SetCurrentIndex(0);

  // The current photo alone: one page.
  dialogs.printerPdf = Pdf();
  ChoosePrint();
  form->OnCommand(1032);
  ASSERT_TRUE(QFile::exists(Pdf()));
  EXPECT_EQ(PageCount(), 1);
  EXPECT_TRUE(RunTool("pdfinfo", {Pdf()}).contains(QRegularExpression("Title: +KorvelApp Image")));

  // Three selected: three pages in selection order, each photo at the
  // printable area's top-left corner, as wide as it, height by the formula.
  QRectF paintRect;  // points
  int horzRes = 0, resolution = 0;
  dialogs.onPrinter = [&](QPrinter *printer) {
    printer->setPageSize(QPageSize(QPageSize::A4));
    printer->setPageMargins(QMarginsF(15, 20, 15, 20), QPageLayout::Millimeter);
    paintRect = printer->pageRect(QPrinter::Point);
    horzRes = printer->width();
    resolution = printer->resolution();
  };
  doc->Selection() = {1, 2, 0};
  ChoosePrint();
  form->OnCommand(1032);
  ASSERT_EQ(PageCount(), 3);
  ASSERT_GT(resolution, 0);
  const int dpi = 100;
  const double scale = dpi / 72.0;
  const int order[] = {1, 2, 0};
  for (int page = 1; page <= 3; ++page) {
    SCOPED_TRACE(page);
    const CDib &photo = doc->ImageAt(order[page - 1]);
    const QImage rendered = Render(page, dpi);
    ASSERT_FALSE(rendered.isNull());
    const QRect box = InkBox(rendered);
    const int printed =
        PrintedHeight(int(photo.Width()), int(photo.Height()), horzRes, resolution, resolution);
    const QRectF expected(paintRect.left() * scale, paintRect.top() * scale,
                          paintRect.width() * scale, printed * 72.0 / resolution * scale);
    EXPECT_NEAR(box.left(), expected.left(), 1.5);
    EXPECT_NEAR(box.top(), expected.top(), 1.5);
    EXPECT_NEAR(box.right() + 1, expected.right(), 1.5);
    EXPECT_NEAR(box.bottom() + 1, expected.bottom(), 1.5);
    const QRgb middle = rendered.pixel(box.center());
    const QRgb want = colours[order[page - 1]];
    EXPECT_NEAR(qRed(middle), qRed(want), 12);
    EXPECT_NEAR(qGreen(middle), qGreen(want), 12);
    EXPECT_NEAR(qBlue(middle), qBlue(want), 12);
    std::printf(
        "page %d: photo %ux%u at (%d,%d) %dx%d px of %d dpi; expected (%.1f,%.1f) %.1fx%.1f\n",
        page, photo.Width(), photo.Height(), box.left(), box.top(), box.width(), box.height(), dpi,
        expected.left(), expected.top(), expected.width(), expected.height());
  }
  EXPECT_TRUE(prompt.messages.isEmpty());
}

TEST_F(Printing, HeightFollowsBothResolutions) {
  // A device whose horizontal resolution is twice its vertical one: the
  // photo keeps its proportions in inches, not in device pixels.
  QImage device(1000, 1400, QImage::Format_RGB32);
  device.fill(Qt::white);
  device.setDotsPerMeterX(qRound(200 / 0.0254));
  device.setDotsPerMeterY(qRound(100 / 0.0254));
  CDib photo(MakePhoto(40, 30, qRgb(0, 0, 0)));
  {
    CPrintDC dc(&device);
    ASSERT_TRUE(dc.StartDoc("KorvelApp Image"));
    EXPECT_EQ(dc.GetDeviceCaps(CPrintDC::HORZRES), 1000);
    EXPECT_EQ(dc.GetDeviceCaps(CPrintDC::VERTRES), 1400);
    EXPECT_EQ(dc.GetDeviceCaps(CPrintDC::LOGPIXELSX), 200);
    EXPECT_EQ(dc.GetDeviceCaps(CPrintDC::LOGPIXELSY), 100);
    PrintPhotoPage(dc, photo);
    EXPECT_EQ(dc.PagesStarted(), 1);
    dc.EndDoc();
  }
  // 30 * 100 * 1000 / (40 * 200) = 375: 5 inches wide, 3.75 inches high.
  EXPECT_EQ(PrintedHeight(40, 30, 1000, 200, 100), 375);
  EXPECT_EQ(InkBox(device), QRect(0, 0, 1000, 375));
  // Truncated, not rounded: 7 * 300 * 1000 / (9 * 300) = 777.7.
  EXPECT_EQ(PrintedHeight(9, 7, 1000, 300, 300), 777);

  // A tall photo runs past the bottom of the page instead of being shrunk.
  device.fill(Qt::white);
  device.setDotsPerMeterY(device.dotsPerMeterX());
  CDib tall(MakePhoto(10, 100, qRgb(0, 0, 0)));
  CPrintDC dc(&device);
  ASSERT_TRUE(dc.StartDoc("KorvelApp Image"));
  PrintPhotoPage(dc, tall);
  dc.EndDoc();
  EXPECT_EQ(PrintedHeight(10, 100, 1000, 200, 200), 10000);
  EXPECT_EQ(InkBox(device), QRect(0, 0, 1000, 1400));
}

}  // namespace
