// The file dialogs' rules (the type a name starts with, the name a type gives,
// the filter strings) and the real dialogs behind the prompt seam, driven as a
// user drives them.
#include <gtest/gtest.h>

#include <QApplication>
#include <QComboBox>
#include <QDialog>
#include <QFile>
#include <QLabel>
#include <QLineEdit>
#include <QMessageBox>
#include <QPushButton>
#include <QTemporaryDir>
#include <QTest>
#include <QTimer>
#include <functional>
#include <memory>

#include "app/filedialog.h"
#include "app/qtprompt.h"

// Test failures show texts as text.
inline void PrintTo(const QString &text, std::ostream *out) {
  *out << '"' << text.toStdString() << '"';
}

namespace {

const QString kSaveFilter =
    "JPEG Files (*.jpg)|*.jpg|BITMAP Files (*.bmp)|*.bmp|TIFF Files(*.tif)|*.tif||";
const QString kOpenFilter =
    "JPEG Files (*.jpg)|*.jpg|BITMAP Files (*.bmp)|*.bmp|TIFF Files(*.tif)|*.tif|"
    "All Image Files(*.jpg,*.bmp,*.tif)|*.jpg;*.bmp;*.tif||";

// Runs `act` on the modal dialog once it is showing; a dialog that `act`
// leaves open is closed after a while, so that a failing test cannot hang.
void WhenModal(std::function<void(QWidget *)> act) {
  auto *timer = new QTimer;
  auto tries = std::make_shared<int>(0);
  QObject::connect(timer, &QTimer::timeout, [timer, act, tries] {
    QWidget *modal = QApplication::activeModalWidget();
    if (!modal && ++*tries < 500) return;
    timer->stop();
    timer->deleteLater();
    if (!modal) {
      ADD_FAILURE() << "no dialog was shown";
      return;
    }
    act(modal);
    QTimer::singleShot(3000, modal, [modal] {
      ADD_FAILURE() << "the dialog was left open";
      modal->close();
    });
  });
  timer->start(10);
}

QPushButton *Button(QWidget *dialog, int id) {
  return dialog->findChild<QPushButton *>(QString::number(id));
}

QComboBox *TypeCombo(QWidget *dialog) {
  return dialog->findChild<QComboBox *>(QStringLiteral("fileTypeCombo"));
}

TEST(DFileDialog, TypeFromTheNamesExtension) {
  const std::vector<std::tuple<const char *, int, int>> cases = {
      {"img.jpg", 2, 1}, {"IMG.JPG", 3, 1}, {"a.bmp", 1, 2}, {"b.TIF", 1, 3},
      {"a.b.bmp", 1, 2}, {"noext", 3, 1},  // no dot: "jpg"
      {"", 2, 1},        {"c.tiff", 2, 2},  {"d.png", 3, 3}, {"dir.v2/x.bmp", 1, 2},
      {"e.jpeg", 2, 2},  {"trail.", 3, 3},
  };
  for (const auto &[name, current, index] : cases)
    EXPECT_EQ(DFileDialog::FilterIndexForName(QString::fromLatin1(name), current), index) << name;
}

TEST(DFileDialog, NameFromTheChosenType) {
  const std::vector<std::tuple<const char *, int, const char *>> cases = {
      {"img.jpg", 3, "img.tif"},
      {"/a/b/noext", 2, "noext.bmp"},
      {"photo", 1, "photo.jpg"},
      {"a.b.c", 2, "a.b.bmp"},
      {"C:\\p\\x.jpg", 2, "x.bmp"},
      {"trail.", 3, "trail.tif"},
      {"", 2, ".bmp"},
      {"img.tif", 1, "img.jpg"},
      {"/a.d/noext", 2, "a.bmp"},  // the dot is found before the folder goes
  };
  for (const auto &[name, index, renamed] : cases)
    EXPECT_EQ(DFileDialog::RenameForType(QString::fromLatin1(name), index), renamed) << name;
  EXPECT_EQ(DFileDialog::ExtensionForIndex(1), "jpg");
  EXPECT_EQ(DFileDialog::ExtensionForIndex(2), "bmp");
  EXPECT_EQ(DFileDialog::ExtensionForIndex(3), "tif");
  EXPECT_EQ(DFileDialog::ExtensionForIndex(0), "jpg");
  EXPECT_EQ(DFileDialog::ExtensionForIndex(4), "jpg");
}

TEST(DFileDialog, FiltersForQt) {
  EXPECT_EQ(DFileDialog::MfcFilterToQt(kSaveFilter),
            (QStringList{"JPEG Files (*.jpg) (*.jpg)", "BITMAP Files (*.bmp) (*.bmp)",
                         "TIFF Files(*.tif) (*.tif)"}));
  EXPECT_EQ(DFileDialog::MfcFilterToQt(kOpenFilter).value(3),
            "All Image Files(*.jpg,*.bmp,*.tif) (*.jpg *.bmp *.tif)");
  EXPECT_EQ(DFileDialog::MfcFilterToQt(kOpenFilter).size(), 4);
  EXPECT_TRUE(DFileDialog::MfcFilterToQt("||").isEmpty());
}

// The save dialog itself, shown but not run, with the user's type choice
// made from the keyboard.
TEST(DFileDialog, LiveDialogFollowsAndRewritesTheName) {
  QTemporaryDir dir;
  {
    DFileDialog dialog(nullptr, kSaveFilter, dir.path() + "/img.bmp");
    dialog.show();
    EXPECT_EQ(dialog.FilterIndex(), 2);
    EXPECT_EQ(dialog.FileNameText(), "img.bmp");
    QComboBox *types = TypeCombo(&dialog);
    ASSERT_NE(types, nullptr);
    // The user sees the type names as the filter writes them.
    ASSERT_EQ(types->count(), 3);
    EXPECT_EQ(types->itemText(0), "JPEG Files (*.jpg)");
    EXPECT_EQ(types->itemText(2), "TIFF Files(*.tif)");
    QTest::keyClick(types, Qt::Key_Down);
    EXPECT_EQ(dialog.FilterIndex(), 3);
    EXPECT_EQ(dialog.FileNameText(), "img.tif");
    QTest::keyClick(types, Qt::Key_Up);
    QTest::keyClick(types, Qt::Key_Up);
    EXPECT_EQ(dialog.FileNameText(), "img.jpg");
  }
  {
    DFileDialog dialog(nullptr, kSaveFilter, dir.path() + "/noext");
    dialog.show();
    EXPECT_EQ(dialog.FilterIndex(), 1);  // no extension counts as "jpg"
    EXPECT_EQ(dialog.FileNameText(), "noext");
    QTest::keyClick(TypeCombo(&dialog), Qt::Key_Down);
    EXPECT_EQ(dialog.FileNameText(), "noext.bmp");
  }
  {
    DFileDialog dialog(nullptr, kSaveFilter, dir.path() + "/scan.tiff");
    EXPECT_EQ(dialog.FilterIndex(), 1);  // "tiff" leaves the first type
    EXPECT_EQ(dialog.FileNameText(), "scan.tiff");
  }
}

TEST(QtPrompt, SaveDialogAnswersWithTheRewrittenName) {
  QTemporaryDir dir;
  QtPrompt prompt;
  WhenModal([](QWidget *dialog) {
    QTest::keyClick(TypeCombo(dialog), Qt::Key_Down);
    static_cast<QDialog *>(dialog)->accept();
  });
  const KorvelPrompt::FileAnswer answer = prompt.AskSaveFile(kSaveFilter, dir.path() + "/img.jpg");
  EXPECT_TRUE(answer.ok);
  EXPECT_EQ(answer.path, dir.path() + "/img.bmp");
  EXPECT_EQ(answer.filterIndex, 2);

  WhenModal([](QWidget *dialog) { QTest::keyClick(dialog, Qt::Key_Escape); });
  EXPECT_FALSE(prompt.AskSaveFile(kSaveFilter, dir.path() + "/img.jpg").ok);
}

TEST(QtPrompt, OpenDialogStartsInTheFolderOfAWildcardName) {
  QTemporaryDir dir;
  QFile(dir.path() + "/a.bmp").open(QIODevice::WriteOnly);
  QtPrompt prompt;
  QString folder, typed;
  WhenModal([&](QWidget *dialog) {
    auto *files = static_cast<QFileDialog *>(dialog);
    folder = files->directory().absolutePath();
    QLineEdit *name = dialog->findChild<QLineEdit *>("fileNameEdit");
    typed = name->text();
    name->setText("a.bmp");
    static_cast<QDialog *>(files)->accept();
  });
  const KorvelPrompt::FileAnswer answer = prompt.AskOpenFile(kOpenFilter, dir.path() + "/*.jpg");
  EXPECT_EQ(folder, dir.path());
  EXPECT_EQ(typed, "");
  EXPECT_TRUE(answer.ok);
  EXPECT_EQ(answer.path, dir.path() + "/a.bmp");
}

TEST(QtPrompt, SavePhotoQuestion) {
  QtPrompt prompt;
  QString text;
  QSize size;
  WhenModal([&](QWidget *dialog) {
    text = dialog->findChild<QLabel *>("1050")->text();
    size = dialog->size();
    EXPECT_EQ(dialog->windowTitle(), "Save Photo");
    EXPECT_TRUE(Button(dialog, 6)->isDefault());
    EXPECT_EQ(Button(dialog, 7)->text(), "No");
    Button(dialog, 1051)->click();
  });
  KorvelPrompt::SavePhotoAnswer answer = prompt.AskSavePhoto("Zib001.jpg");
  EXPECT_EQ(text, "Do you want to save your photo Zib001.jpg");
  EXPECT_EQ(size, QSize(279, 81));  // 186 x 50 dialog units
  EXPECT_EQ(answer.result, KorvelPrompt::IDOK);
  EXPECT_EQ(answer.choice, "NOTOALL");

  for (const auto &[id, word] : {std::pair{6, "YES"}, {7, "NO"}}) {
    WhenModal([id = id](QWidget *dialog) { Button(dialog, id)->click(); });
    answer = prompt.AskSavePhoto("a.jpg");
    EXPECT_EQ(answer.result, KorvelPrompt::IDOK);
    EXPECT_EQ(answer.choice, word);
  }
  WhenModal([](QWidget *dialog) { QTest::keyClick(dialog, Qt::Key_Escape); });
  answer = prompt.AskSavePhoto("a.jpg");
  EXPECT_EQ(answer.result, KorvelPrompt::IDCANCEL);
  EXPECT_EQ(answer.choice, "NOTOALL");
}

TEST(QtPrompt, MessageBoxesMapTheirButtons) {
  QtPrompt prompt;
  QString title, text;
  WhenModal([&](QWidget *box) {
    title = box->windowTitle();
    text = static_cast<QMessageBox *>(box)->text();
    QTest::keyClick(box, Qt::Key_Return);
  });
  EXPECT_EQ(prompt.MessageBox("Cannot open file x", KorvelPrompt::MB_OK), KorvelPrompt::IDOK);
  EXPECT_EQ(title, "KorvelApp");
  EXPECT_EQ(text, "Cannot open file x");

  struct Case {
    int buttons;
    QMessageBox::StandardButton press;  // NoButton: Escape
    int result;
  };
  for (const Case &c : {Case{KorvelPrompt::MB_YESNOCANCEL, QMessageBox::NoButton, 2},
                        Case{KorvelPrompt::MB_YESNOCANCEL, QMessageBox::No, 7},
                        Case{KorvelPrompt::MB_YESNOCANCEL, QMessageBox::Yes, 6},
                        Case{KorvelPrompt::MB_YESNO, QMessageBox::Yes, 6},
                        Case{KorvelPrompt::MB_YESNO, QMessageBox::No, 7},
                        Case{KorvelPrompt::MB_YESNO, QMessageBox::NoButton, 7},
                        Case{KorvelPrompt::MB_OK, QMessageBox::NoButton, 1}}) {
    int shown = 0;
    WhenModal([&](QWidget *widget) {
      auto *box = static_cast<QMessageBox *>(widget);
      shown = static_cast<int>(box->buttons().size());
      if (c.press == QMessageBox::NoButton)
        QTest::keyClick(box, Qt::Key_Escape);
      else
        box->button(c.press)->click();
    });
    EXPECT_EQ(prompt.MessageBox("?", c.buttons), c.result) << c.buttons << " " << c.press;
    EXPECT_EQ(shown, c.buttons == KorvelPrompt::MB_OK      ? 1
                     : c.buttons == KorvelPrompt::MB_YESNO ? 2
                                                           : 3);
  }
}

TEST(QtPrompt, GetPhotoDialog) {
  QtPrompt prompt;
  QStringList sources;
  bool picture = false;
  WhenModal([&](QWidget *dialog) {
    EXPECT_EQ(dialog->windowTitle(), "Get Photo");
    const QComboBox *combo = dialog->findChild<QComboBox *>("1026");
    for (int i = 0; combo && i < combo->count(); ++i)
      sources << combo->itemText(i);
    const QLabel *label = dialog->findChild<QLabel *>("271");
    picture = label && !label->pixmap().isNull() && label->isVisible();
    EXPECT_EQ(Button(dialog, 1034)->text(), "Get Photo");
    EXPECT_EQ(Button(dialog, 1035)->text(), "Get Photo File");
    EXPECT_EQ(Button(dialog, 1036)->text(), "Cancel");
    Button(dialog, 1034)->click();
  });
  KorvelPrompt::GetPhotoAnswer answer = prompt.AskGetPhoto();
  EXPECT_EQ(answer.result, KorvelPrompt::IDOK);
  EXPECT_TRUE(answer.camera);
  EXPECT_EQ(sources, QStringList{"Korvel Twain Source 3.0"});
  // The artwork is linked into the tests, so the picture shows.
  EXPECT_EQ(picture, QFile::exists(":/skins/271.png"));

  WhenModal([](QWidget *dialog) { Button(dialog, 1035)->click(); });
  answer = prompt.AskGetPhoto();
  EXPECT_EQ(answer.result, KorvelPrompt::IDOK);
  EXPECT_FALSE(answer.camera);
  for (const bool escape : {false, true}) {
    WhenModal([escape](QWidget *dialog) {
      if (escape)
        QTest::keyClick(dialog, Qt::Key_Escape);
      else
        Button(dialog, 1036)->click();
    });
    EXPECT_EQ(prompt.AskGetPhoto().result, KorvelPrompt::IDCANCEL);
  }
}

TEST(QtPrompt, AboutBox) {
  QtPrompt prompt;
  QStringList texts;
  QString title;
  WhenModal([&](QWidget *dialog) {
    title = dialog->windowTitle();
    for (const QLabel *label : dialog->findChildren<QLabel *>())
      if (!label->text().isEmpty()) texts << label->text();
    Button(dialog, KorvelPrompt::IDOK)->click();
  });
  prompt.ShowAbout();
  EXPECT_EQ(title, "About KorvelApp");
  EXPECT_TRUE(texts.contains("KorvelApp Version 1.0"));
  EXPECT_EQ(texts.filter("2000").size(), 1) << texts.join('|').toStdString();
}

}  // namespace
