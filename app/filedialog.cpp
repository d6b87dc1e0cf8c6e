// The file dialogs' name and type rules, and the save dialog that applies them
// while it is showing.
#include "app/filedialog.h"

#include "photo/photofiles.h"

#include <QComboBox>
#include <QLineEdit>
#include <algorithm>

namespace {

int LastSeparator(const QString &name) {
  return static_cast<int>(std::max(name.lastIndexOf('/'), name.lastIndexOf('\\')));
}

}  // namespace

DFileDialog::DFileDialog(QWidget *parent, const QString &filter, const QString &initial)
    : QFileDialog(parent) {
  setAcceptMode(AcceptSave);
  setFileMode(AnyFile);
  SetUp(this, filter, initial);
  // Once set up, the type follows the name the dialog starts with. Qt's own
  // choice of a type rewrites the name's extension; here the name must stay
  // as it was given ("scan.tiff" keeps its extension under the first type).
  const QString name = FileNameText();
  selectNameFilter(nameFilters().value(FilterIndexForName(name, 1) - 1));
  SetFileNameText(name);
  // filterSelected comes only from the user's choice, after the dialog has
  // applied the new type to its list, so the rewritten name is the last word.
  connect(this, &QFileDialog::filterSelected, this, &DFileDialog::OnTypeChange);
}

int DFileDialog::FilterIndex() const {
  return SelectedFilterIndex(this);
}

int DFileDialog::SelectedFilterIndex(const QFileDialog *dialog) {
  // With the patterns hidden Qt reports the type by its shown name, which is
  // not one of the filters it was given; the list of types says which it is.
  if (const auto *types = dialog->findChild<QComboBox *>(QStringLiteral("fileTypeCombo")))
    return types->currentIndex() + 1;
  return static_cast<int>(dialog->nameFilters().indexOf(dialog->selectedNameFilter())) + 1;
}

QString DFileDialog::FileNameText() const {
  // The name box as the user sees it: a name typed without a folder must not
  // pick up the folder (whose dots would otherwise count as the name's).
  if (const auto *edit = findChild<QLineEdit *>(QStringLiteral("fileNameEdit")))
    return edit->text();
  const QString chosen = selectedFiles().value(0);
  return chosen.mid(LastSeparator(chosen) + 1);
}

void DFileDialog::SetFileNameText(const QString &name) {
  if (auto *edit = findChild<QLineEdit *>(QStringLiteral("fileNameEdit")))
    edit->setText(name);
  else if (!name.isEmpty())
    selectFile(name);
}

void DFileDialog::OnTypeChange() {
  SetFileNameText(RenameForType(FileNameText(), FilterIndex()));
}

int DFileDialog::FilterIndexForName(const QString &name, int current) {
  const int dot = static_cast<int>(name.lastIndexOf('.'));
  const QString extension = dot < 0 ? QStringLiteral("jpg") : name.mid(dot + 1).toLower();
  if (extension == QLatin1String("jpg")) return 1;
  if (extension == QLatin1String("bmp")) return 2;
  if (extension == QLatin1String("tif")) return 3;
  return current;
}

QString DFileDialog::ExtensionForIndex(int index) {
  return SaveTypeExtension(index);
}

QString DFileDialog::RenameForType(const QString &name, int index) {
  const int dot = static_cast<int>(name.lastIndexOf('.'));
  QString renamed = dot < 0 ? name + '.' : name.left(dot + 1);
  renamed += ExtensionForIndex(index);
  // The dot is looked for before the folder is dropped, so a dot in a folder
  // name of a name without an extension of its own is cut there; the name box
  // normally holds no folder, which keeps this from mattering.
  return renamed.mid(LastSeparator(renamed) + 1);
}

QStringList DFileDialog::MfcFilterToQt(const QString &filter) {
  // The name already shows its patterns ("JPEG Files (*.jpg)"); the patterns
  // appended after it are the ones Qt reads, and the dialog hides them again
  // so that the user sees the names as they are written.
  QStringList filters;
  const QStringList parts = filter.split('|');
  for (qsizetype i = 0; i + 1 < parts.size(); i += 2) {
    if (parts[i].isEmpty()) break;  // the "||" that ends the list
    QString patterns = parts[i + 1];
    patterns.replace(';', ' ');
    filters.append(parts[i] + QStringLiteral(" (") + patterns + ')');
  }
  return filters;
}

void DFileDialog::SetUp(QFileDialog *dialog, const QString &filter, const QString &initial) {
  // The dialog drawn by Qt rather than the desktop's: it is the one that hides
  // the appended patterns and lets the save dialog rewrite its name box.
  dialog->setOptions(QFileDialog::DontUseNativeDialog | QFileDialog::HideNameFilterDetails);
  dialog->setNameFilters(MfcFilterToQt(filter));
  if (initial.isEmpty()) return;
  const int cut = LastSeparator(initial);
  const QString name = initial.mid(cut + 1);
  if (name.contains('*') || name.contains('?')) {
    if (cut >= 0) dialog->setDirectory(cut == 0 ? QStringLiteral("/") : initial.left(cut));
  } else {
    dialog->selectFile(initial);
  }
}
