// The real dialogs behind KorvelPrompt: message boxes, the file dialogs (the
// save dialog rewriting the name's extension as the type changes), the "Save
// Photo" question, the "Get Photo" dialog and the About box.
#pragma once

#include <QPixmap>

#include "photo/prompt.h"

class QtPrompt : public KorvelPrompt {
 public:
  // Artwork `name` (":/skins/NAME.png") for a screen of `scale` device pixels
  // a logical pixel; null when the program carries no such artwork.
  static QPixmap Artwork(const QString &name, qreal scale);

  int MessageBox(const QString &text, int buttons) override;
  CheckAnswer MessageBoxWithCheck(const QString &text, const QString &check, bool checked,
                                  int buttons) override;
  SavePhotoAnswer AskSavePhoto(const QString &fileName) override;
  FileAnswer AskOpenFile(const QString &filter, const QString &initial) override;
  FilesAnswer AskOpenFiles(const QString &filter, const QString &initial) override;
  FileAnswer AskSaveFile(const QString &filter, const QString &initial) override;
  // Without a list, the combo box names the program's own camera source,
  // which the camera choice then opens by default.
  GetPhotoAnswer AskGetPhoto(const QStringList &sources = {}, int selected = 0) override;
  void ShowAbout() override;
  void Beep() override;
};
