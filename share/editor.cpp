// The outside editor hand-off. Nothing is exchanged with the editor beyond
// its command line, nothing is waited for, and nothing is deleted afterwards:
// the editor opens the JPEG after this returns.
#include "share/editor.h"

#include <QDir>

#include "photo/dib.h"
#include "photo/document.h"
#include "photo/photofiles.h"
#include "photo/prompt.h"
#include "photo/settings.h"
#include "photo/strings.h"
#include "share/launcher.h"
#include "share/tempfiles.h"

const char kPhotoDeluxeProgId[] = "PhotoDeluxe.Image";

namespace {

constexpr char kPhotoDeluxeEntries[] = "org.gimp.GIMP.desktop;gimp.desktop";

QStringList EntriesFor(const QString &progId) {
  const QVariant fallback =
      progId == kPhotoDeluxeProgId ? QVariant(kPhotoDeluxeEntries) : QVariant();
  const QVariant value = KorvelSettings()->value("editors/" + progId, fallback);
  // A list written through QSettings comes back as a list; text holds ";".
  const QString joined =
      value.typeId() == QMetaType::QStringList ? value.toStringList().join(';') : value.toString();
  return joined.split(';', Qt::SkipEmptyParts);
}

}  // namespace

bool FindServerCommand(const QString &progId, CDesktopCommand *command) {
  for (const QString &id : EntriesFor(progId)) {
    const QString entry = FindDesktopEntry(id);
    if (!entry.isEmpty() && ReadDesktopCommand(entry, command)) return true;
  }
  return false;
}

QString GetServerPath(const QString &progId) {
  CDesktopCommand command;
  return FindServerCommand(progId, &command) ? command.ToString() : QString();
}

QString EditorFileNameFor(const QString &tmpPath) {
  const qsizetype dot = tmpPath.indexOf('.');
  return dot < 0 ? tmpPath : tmpPath.left(dot) + ".jpg";
}

void SendToPhotoDeluxe(const CKorvelAppDoc *doc) {
  if (doc->CurrentIndex() == -1) {
    AfxMessageBox(LoadKorvelString(1022));
    return;
  }
  if (doc->Selection().size() > 1) {
    AfxMessageBox("Please select only one image that you would like to send to PhotoDeluxe");
    return;
  }
  const CDib photo = doc->ImageAt(doc->CurrentIndex());
  if (!photo.Header()) {
    AfxMessageBox(LoadKorvelString(1023));
    return;
  }
  CDesktopCommand server;
  if (!FindServerCommand(kPhotoDeluxeProgId, &server)) {
    AfxMessageBox(LoadKorvelString(1024));
    return;
  }
  const QString temp = CKorvelAppDoc::TempPath();
  // The temporary folder is empty when the one the environment names is not
  // there.
  if (QDir::tempPath().isEmpty() || !QDir(temp).exists()) {
    AfxMessageBox(
        "Unable to save temporary file. Please check to see if you have enough disk space");
    return;
  }
  // Without a temporary name the save gets an empty path and says so itself.
  // The JPEG never goes through a file already at its name: another
  // temporary name is made until one is free.
  const QString name = SaveNewPicture(
      FormatForExtension("jpg"),
      [&temp] { return EditorFileNameFor(MakeTempFileName(temp, "Zib")); }, photo,
      doc->ResolutionAt(doc->CurrentIndex()));
  if (name.isEmpty()) return;
  CShellLauncher::Current().StartProgram(server.program, server.ArgumentsWith(name),
                                         QDir::rootPath());
}
