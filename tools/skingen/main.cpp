// korvel-skingen OUTDIR [--contact-sheet FILE]
//
// Draws the application's artwork into OUTDIR: skins/<n>.png for every bitmap number of
// the main form's skinned buttons, skins/271.png for the Get Photo dialog, skins/form.png
// for the form's background and the application icon under icons/. The same system gives
// the same bytes on every run, so the files can be kept with the sources and regenerated
// by `cmake --build BUILD --target skins`.
#include <QDir>
#include <QFontInfo>
#include <QGuiApplication>
#include <QImage>
#include <QMap>
#include <cstdio>

#include "artwork.h"
#include "buttonface.h"
#include "captionfont.h"
#include "skintable.h"

namespace {

using namespace skingen;

bool Save(const QImage &image, const QString &path) {
  if (!QDir().mkpath(QFileInfo(path).path()) || !image.save(path, "PNG")) {
    std::fprintf(stderr, "korvel-skingen: cannot write %s\n", qPrintable(path));
    return false;
  }
  return true;
}

// The tool buttons whose disabled bitmap is also their focus bitmap are the colour and
// red-eye tools: the form disables the chosen tool, so that one bitmap shows the choice.
FaceState FocusState(const SkinnedControl &control) {
  return control.disabled == control.focus ? FaceState::kSelected : FaceState::kFocus;
}

bool WriteSkins(const QDir &out) {
  QMap<int, int> owner;  // bitmap number -> control, to catch a number used twice
  for (const SkinnedControl &control : SkinnedControls()) {
    const QSize size = PixelSize(control);
    const QString label = QString::fromUtf8(control.label);
    if (!CaptionFits(size, label, control.pictogram)) {
      std::fprintf(stderr, "korvel-skingen: \"%s\" does not fit %dx%d\n", control.label,
                   size.width(), size.height());
      return false;
    }
    const std::pair<int, FaceState> states[] = {{control.up, FaceState::kUp},
                                                {control.down, FaceState::kDown},
                                                {control.focus, FocusState(control)},
                                                {control.disabled, FaceState::kDisabled}};
    for (const auto &[resource, state] : states) {
      if (resource == 0 || (state == FaceState::kDisabled && resource == control.focus)) continue;
      if (owner.contains(resource)) {
        std::fprintf(stderr, "korvel-skingen: bitmap %d belongs to %d and %d\n", resource,
                     owner[resource], control.id);
        return false;
      }
      owner.insert(resource, control.id);
      const QImage face = DrawButtonFace(size, label, control.pictogram, state);
      if (!Save(face, out.filePath(QStringLiteral("skins/%1.png").arg(resource)))) return false;
    }
  }
  return true;
}

bool WriteIcons(const QDir &out) {
  if (!Save(DrawIcon(256), out.filePath(QStringLiteral("icons/korvelapp.png")))) return false;
  for (const int side : {48, 128}) {
    const QString path = QStringLiteral("icons/hicolor/%1x%1/apps/korvelapp.png").arg(side);
    if (!Save(DrawIcon(side), out.filePath(path))) return false;
  }
  return true;
}

}  // namespace

int main(int argc, char **argv) {
  // The generator needs fonts and a paint engine, never a screen.
  if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM")) qputenv("QT_QPA_PLATFORM", "offscreen");
  QGuiApplication app(argc, argv);

  QStringList args = QCoreApplication::arguments().mid(1);
  QString contactSheet;
  // A trailing "--contact-sheet" without its file stays among the arguments and so
  // ends in the usage message.
  if (const qsizetype at = args.indexOf(QStringLiteral("--contact-sheet"));
      at >= 0 && at + 1 < args.size()) {
    contactSheet = args.takeAt(at + 1);
    args.removeAt(at);
  }
  if (args.size() != 1) {
    std::fprintf(stderr, "usage: korvel-skingen OUTDIR [--contact-sheet FILE]\n");
    return 2;
  }
  const QDir out(args.first());

  const QString family = QFontInfo(CaptionFont(12)).family();
  if (family != QLatin1String("Liberation Sans") && family != QLatin1String("Arial")) {
    std::fprintf(stderr, "korvel-skingen: warning: captions fall back to %s\n", qPrintable(family));
  }

  if (!WriteSkins(out) || !WriteIcons(out) ||
      !Save(DrawFormBackground(), out.filePath(QStringLiteral("skins/form.png"))) ||
      !Save(DrawGetPhotoPicture(),
            out.filePath(QStringLiteral("skins/%1.png").arg(kGetPhotoPicture)))) {
    return 1;
  }
  if (!contactSheet.isEmpty()) {
    const QImage sheet = DrawContactSheet(out.filePath(QStringLiteral("skins")));
    if (sheet.isNull() || !Save(sheet, contactSheet)) return 1;
  }
  return 0;
}
