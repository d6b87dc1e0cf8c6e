// The file dialogs. Open uses a plain file dialog; save uses DFileDialog, which
// picks its file type from the extension of the name it starts with and, when
// the user picks another type, rewrites the name in the box to match it. The
// string rules are static so that they can be checked without a dialog.
#pragma once

#include <QFileDialog>
#include <QString>
#include <QStringList>

class DFileDialog : public QFileDialog {
  Q_OBJECT

 public:
  // A save dialog listing the types of `filter` ("Name|pattern|...||") with
  // `initial` (a path or a bare name) in the name box and the type its
  // extension names chosen.
  DFileDialog(QWidget *parent, const QString &filter, const QString &initial);

  // The chosen type, 1-based in the order the filter lists them.
  int FilterIndex() const;
  // What the name box holds now.
  QString FileNameText() const;
  void SetFileNameText(const QString &name);
  // The type chosen in any dialog set up by SetUp, 1-based.
  static int SelectedFilterIndex(const QFileDialog *dialog);

  // The type a name starts the dialog with: its extension (after the last
  // dot, any case; "jpg" when there is no dot) names 1 "jpg", 2 "bmp" or
  // 3 "tif"; any other extension, "tiff" included, keeps `current`.
  static int FilterIndexForName(const QString &name, int current);
  // The extension a type stands for: 1 "jpg", 2 "bmp", 3 "tif"; any other
  // index "jpg", the format every unknown name is saved in.
  static QString ExtensionForIndex(int index);
  // The name the box shows after type `index` was picked: the extension
  // after the last dot replaced (or ".ext" added when there is no dot), then
  // any folder dropped.
  static QString RenameForType(const QString &name, int index);
  // "Name|*.a;*.b|...||" as Qt's name filters, "Name (*.a *.b)" each.
  static QStringList MfcFilterToQt(const QString &filter);

  // The set-up both file dialogs share: the filter's types, shown under the
  // names the filter gives them, and the initial name. An initial name with a
  // wildcard ("folder/*.jpg") only opens its folder.
  static void SetUp(QFileDialog *dialog, const QString &filter, const QString &initial);

 private:
  void OnTypeChange();
};
