// The real dialogs behind KorvelPrompt. The program's own dialogs are laid out
// in dialog units of 8-point MS Sans Serif, converted to pixels like the form.
#include "app/qtprompt.h"

#include <QApplication>
#include <QCheckBox>
#include <QComboBox>
#include <QDialog>
#include <QFile>
#include <QHBoxLayout>
#include <QLabel>
#include <QMessageBox>
#include <QPixmap>
#include <QPushButton>
#include <QVBoxLayout>

#include "app/filedialog.h"
#include "res/formcontrols.h"

namespace {

const QString kTitle = QStringLiteral("KorvelApp");

// Control ids of the Save Photo (341) and Get Photo (194) dialogs; the tests
// find the controls by them.
enum DialogId : int {
  kIdSaveText = 1050,
  kIdYes = 6,
  kIdNo = 7,
  kIdNoToAll = 1051,
  kIdSourceList = 1026,
  kIdGetPhoto = 1034,
  kIdGetPhotoFile = 1035,
  kIdGetCancel = 1036,
};

QString IdName(int id) {
  return QString::number(id);
}

QRect DluRect(int x, int y, int width, int height) {
  return QRect(DluToPixelsX(x), DluToPixelsY(y), DluToPixelsX(width), DluToPixelsY(height));
}

// A modal dialog of the program's own, in the font its dialog units belong to.
void SetUpDialog(QDialog *dialog, const QString &title) {
  dialog->setWindowTitle(title);
  dialog->setFont(QFont(QStringLiteral("MS Sans Serif"), 8));
  dialog->setModal(true);
}

QPushButton *AddButton(QDialog *dialog, int id, const QString &caption) {
  auto *button = new QPushButton(caption, dialog);
  button->setObjectName(IdName(id));
  return button;
}

// A picture from the resources, or a null one when the artwork is not built
// in, in which case the dialog simply shows none.
QPixmap ResourcePicture(const QString &path) {
  return QFile::exists(path) ? QPixmap(path) : QPixmap();
}

}  // namespace

namespace {

// The buttons of `buttons` on `box`, with its default and Escape buttons.
void SetButtons(QMessageBox *box, int buttons) {
  switch (buttons) {
    case KorvelPrompt::MB_YESNOCANCEL:
      box->setStandardButtons(QMessageBox::Yes | QMessageBox::No | QMessageBox::Cancel);
      box->setDefaultButton(QMessageBox::Yes);
      box->setEscapeButton(QMessageBox::Cancel);
      break;
    case KorvelPrompt::MB_YESNO:
      // Without a Cancel button, Escape and closing the box answer No.
      box->setStandardButtons(QMessageBox::Yes | QMessageBox::No);
      box->setDefaultButton(QMessageBox::Yes);
      box->setEscapeButton(QMessageBox::No);
      break;
    case KorvelPrompt::MB_OKCANCEL:
      box->setStandardButtons(QMessageBox::Ok | QMessageBox::Cancel);
      box->setDefaultButton(QMessageBox::Ok);
      box->setEscapeButton(QMessageBox::Cancel);
      break;
    default:
      box->setStandardButtons(QMessageBox::Ok);
      box->setDefaultButton(QMessageBox::Ok);
      box->setEscapeButton(QMessageBox::Ok);
      break;
  }
}

int ResultOf(int button) {
  switch (button) {
    case QMessageBox::Ok:
      return KorvelPrompt::IDOK;
    case QMessageBox::Yes:
      return KorvelPrompt::IDYES;
    case QMessageBox::No:
      return KorvelPrompt::IDNO;
    default:
      return KorvelPrompt::IDCANCEL;
  }
}

}  // namespace

int QtPrompt::MessageBox(const QString &text, int buttons) {
  QMessageBox box(QMessageBox::NoIcon, kTitle, text, QMessageBox::NoButton, ParentWindow());
  SetButtons(&box, buttons);
  return ResultOf(box.exec());
}

KorvelPrompt::CheckAnswer QtPrompt::MessageBoxWithCheck(const QString &text, const QString &check,
                                                        bool checked, int buttons) {
  QMessageBox box(QMessageBox::NoIcon, kTitle, text, QMessageBox::NoButton, ParentWindow());
  SetButtons(&box, buttons);
  auto *checkBox = new QCheckBox(check);  // the box takes it over
  checkBox->setChecked(checked);
  box.setCheckBox(checkBox);
  const int result = ResultOf(box.exec());
  return {result, checkBox->isChecked()};
}

// Dialog 341. Every button ends it with OK and leaves its word in the
// answer; closing it any other way cancels, with the answer still "NOTOALL".
KorvelPrompt::SavePhotoAnswer QtPrompt::AskSavePhoto(const QString &fileName) {
  QDialog dialog(ParentWindow());
  SetUpDialog(&dialog, QStringLiteral("Save Photo"));
  dialog.setFixedSize(DluToPixelsX(186), DluToPixelsY(50));

  auto *text = new QLabel(QStringLiteral("Do you want to save your photo ") + fileName, &dialog);
  text->setObjectName(IdName(kIdSaveText));
  text->setGeometry(DluRect(6, 7, 172, 17));
  text->setAlignment(Qt::AlignHCenter | Qt::AlignTop);
  text->setWordWrap(true);

  SavePhotoAnswer answer;
  struct Choice {
    int id;
    const char *caption;
    const char *word;
    int x;
  };
  static constexpr Choice kChoices[] = {{kIdYes, "Yes", "YES", 12},
                                        {kIdNo, "No", "NO", 68},
                                        {kIdNoToAll, "No to All", "NOTOALL", 124}};
  for (const Choice &choice : kChoices) {
    QPushButton *button = AddButton(&dialog, choice.id, QString::fromLatin1(choice.caption));
    button->setGeometry(DluRect(choice.x, 29, 50, 14));
    button->setDefault(choice.id == kIdYes);
    QObject::connect(button, &QPushButton::clicked, &dialog, [&answer, &dialog, choice] {
      answer.choice = QString::fromLatin1(choice.word);
      dialog.accept();
    });
  }
  answer.result = dialog.exec() == QDialog::Accepted ? IDOK : IDCANCEL;
  return answer;
}

namespace {

// The plain open dialog in `mode`: the files chosen, empty when cancelled,
// and the 1-based index of the type it ended on.
QStringList RunOpenDialog(QFileDialog::FileMode mode, const QString &filter, const QString &initial,
                          int *filterIndex) {
  QFileDialog dialog(KorvelPrompt::ParentWindow());
  dialog.setAcceptMode(QFileDialog::AcceptOpen);
  dialog.setFileMode(mode);
  DFileDialog::SetUp(&dialog, filter, initial);
  if (dialog.exec() != QDialog::Accepted) return {};
  *filterIndex = static_cast<int>(dialog.nameFilters().indexOf(dialog.selectedNameFilter())) + 1;
  return dialog.selectedFiles();
}

}  // namespace

KorvelPrompt::FileAnswer QtPrompt::AskOpenFile(const QString &filter, const QString &initial) {
  FileAnswer answer;
  // Any name is taken, as the program's open dialog does not insist on an
  // existing file; a name that opens nothing is reported by the caller.
  const QStringList chosen =
      RunOpenDialog(QFileDialog::AnyFile, filter, initial, &answer.filterIndex);
  if (chosen.isEmpty()) return answer;
  answer.ok = true;
  answer.path = chosen.constFirst();
  return answer;
}

// Several photos at once: only files that exist can be chosen, since a list
// of names typed by hand could not be told apart from one name with quotes.
KorvelPrompt::FilesAnswer QtPrompt::AskOpenFiles(const QString &filter, const QString &initial) {
  FilesAnswer answer;
  answer.paths = RunOpenDialog(QFileDialog::ExistingFiles, filter, initial, &answer.filterIndex);
  answer.ok = !answer.paths.isEmpty();
  return answer;
}

KorvelPrompt::FileAnswer QtPrompt::AskSaveFile(const QString &filter, const QString &initial) {
  DFileDialog dialog(ParentWindow(), filter, initial);
  FileAnswer answer;
  if (dialog.exec() != QDialog::Accepted || dialog.selectedFiles().isEmpty()) return answer;
  answer.ok = true;
  answer.path = dialog.selectedFiles().constFirst();
  answer.filterIndex = dialog.FilterIndex();
  return answer;
}

// The double-size drawing where the screen is scaled, so the picture stays sharp.
QPixmap QtPrompt::Artwork(const QString &name, qreal scale) {
  if (scale > 1.0) {
    QPixmap twice = ResourcePicture(QStringLiteral(":/skins/%1@2x.png").arg(name));
    if (!twice.isNull()) {
      twice.setDevicePixelRatio(2.0);
      return twice;
    }
  }
  return ResourcePicture(QStringLiteral(":/skins/%1.png").arg(name));
}

// Dialog 194: the camera or a file, with the camera's source and picture 271.
KorvelPrompt::GetPhotoAnswer QtPrompt::AskGetPhoto(const QStringList &sources, int selected) {
  QDialog dialog(ParentWindow());
  SetUpDialog(&dialog, QStringLiteral("Get Photo"));

  auto *picture = new QLabel(&dialog);
  picture->setObjectName(QStringLiteral("271"));
  const QPixmap artwork = Artwork(QStringLiteral("271"), dialog.devicePixelRatioF());
  picture->setPixmap(artwork);
  picture->setVisible(!artwork.isNull());

  auto *source = new QComboBox(&dialog);
  source->setObjectName(IdName(kIdSourceList));
  // Only sources that exist are offered: with none, the box stays empty
  // rather than naming a camera source that is not there.
  source->setPlaceholderText(QStringLiteral("No camera found"));
  source->addItems(sources);
  if (!sources.isEmpty())
    source->setCurrentIndex(selected >= 0 && selected < sources.size() ? selected : 0);

  GetPhotoAnswer answer;
  QPushButton *camera = AddButton(&dialog, kIdGetPhoto, QStringLiteral("Get Photo"));
  QPushButton *file = AddButton(&dialog, kIdGetPhotoFile, QStringLiteral("Get Photo File"));
  QPushButton *cancel = AddButton(&dialog, kIdGetCancel, QStringLiteral("Cancel"));
  camera->setDefault(true);
  QObject::connect(camera, &QPushButton::clicked, &dialog, [&] {
    answer.camera = true;
    answer.source = sources.isEmpty() ? -1 : source->currentIndex();
    dialog.accept();
  });
  QObject::connect(file, &QPushButton::clicked, &dialog, [&] {
    answer.camera = false;
    dialog.accept();
  });
  QObject::connect(cancel, &QPushButton::clicked, &dialog, &QDialog::reject);

  auto *left = new QVBoxLayout;
  left->addWidget(picture);
  left->addWidget(source);
  left->addStretch();
  auto *right = new QVBoxLayout;
  for (QPushButton *button : {camera, file, cancel})
    right->addWidget(button);
  right->addStretch();
  auto *layout = new QHBoxLayout(&dialog);
  layout->addLayout(left);
  layout->addLayout(right);
  layout->setSizeConstraint(QLayout::SetFixedSize);

  answer.result = dialog.exec() == QDialog::Accepted ? IDOK : IDCANCEL;
  return answer;
}

// Dialog 100, laid out as the framework's standard About box.
void QtPrompt::ShowAbout() {
  QDialog dialog(ParentWindow());
  SetUpDialog(&dialog, QStringLiteral("About KorvelApp"));
  dialog.setFixedSize(DluToPixelsX(217), DluToPixelsY(55));

  const QPixmap icon = ResourcePicture(QStringLiteral(":/icons/korvelapp.png"));
  if (!icon.isNull()) {
    auto *picture = new QLabel(&dialog);
    picture->setPixmap(icon.scaled(32, 32, Qt::KeepAspectRatio, Qt::SmoothTransformation));
    picture->setGeometry(QRect(DluRect(11, 17, 0, 0).topLeft(), QSize(32, 32)));
  }
  auto *version = new QLabel(QStringLiteral("KorvelApp Version 1.0"), &dialog);
  version->setTextFormat(Qt::PlainText);
  version->setGeometry(DluRect(40, 10, 119, 8));
  auto *copyright = new QLabel(QStringLiteral("Copyright (C) 2000"), &dialog);
  copyright->setTextFormat(Qt::PlainText);
  copyright->setGeometry(DluRect(40, 25, 119, 8));
  QPushButton *ok = AddButton(&dialog, IDOK, QStringLiteral("OK"));
  ok->setGeometry(DluRect(178, 7, 32, 14));
  ok->setDefault(true);
  QObject::connect(ok, &QPushButton::clicked, &dialog, &QDialog::accept);
  dialog.exec();
}

void QtPrompt::Beep() {
  QApplication::beep();
}
