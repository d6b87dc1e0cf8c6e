// The file dialogs' name and filter rules, and the real dialogs behind the
// prompt seam, driven as a user drives them.
#include <gtest/gtest.h>

#include <QApplication>
#include <QComboBox>
#include <QDialog>
#include <QFile>
#include <QFileDialog>
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

// Clicks the button `id`; 0 presses Escape instead.
void Press(QWidget *dialog, int id) {
  id ? Button(dialog, id)->click() : QTest::keyClick(dialog, Qt::Key_Escape);
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
  // The dot is found before the folder goes: "/a.d/noext" gives "a.bmp".
  const std::vector<std::tuple<const char *, int, const char *>> cases = {
      {"img.jpg", 3, "img.tif"}, {"/a/b/noext", 2, "noext.bmp"}, {"photo", 1, "photo.jpg"},
      {"a.b.c", 2, "a.b.bmp"},   {"C:\\p\\x.jpg", 2, "x.bmp"},   {"trail.", 3, "trail.tif"},
      {"", 2, ".bmp"},           {"img.tif", 1, "img.jpg"},      {"/a.d/noext", 2, "a.bmp"}};
  for (const auto &[name, index, renamed] : cases)
    EXPECT_EQ(DFileDialog::RenameForType(QString::fromLatin1(name), index), renamed) << name;
  const char *extensions[] = {"jpg", "jpg", "bmp", "tif", "jpg"};
  for (int index = 0; index < 5; ++index)
    EXPECT_EQ(DFileDialog::ExtensionForIndex(index), extensions[index]) << index;
}

TEST(DFileDialog, FiltersForQt) {
  EXPECT_EQ(DFileDialog::MfcFilterToQt(kSaveFilter),
            (QStringList{"JPEG Files (*.jpg) (*.jpg)", "BITMAP Files (*.bmp) (*.bmp)",
                         "TIFF Files(*.tif) (*.tif)"}));
  const QStringList open = DFileDialog::MfcFilterToQt(kOpenFilter);
  EXPECT_EQ(open.size(), 4);
  EXPECT_EQ(open.value(3), "All Image Files(*.jpg,*.bmp,*.tif) (*.jpg *.bmp *.tif)");
  EXPECT_TRUE(DFileDialog::MfcFilterToQt("||").isEmpty());
}

// The save dialog itself, shown but not run, with the type chosen from the keyboard.
TEST(DFileDialog, LiveDialogFollowsAndRewritesTheName) {
  QTemporaryDir dir;
  const struct {
    const char *initial;
    int index;  // the type the name starts with; "tiff" and no extension leave the first
    const char *down, *up;  // the name after one type down, then two up
  } cases[] = {{"img.bmp", 2, "img.tif", "img.jpg"},
               {"noext", 1, "noext.bmp", "noext.jpg"},
               {"scan.tiff", 1, "scan.bmp", "scan.jpg"}};
  for (const auto &c : cases) {
    SCOPED_TRACE(c.initial);
    DFileDialog dialog(nullptr, kSaveFilter, dir.path() + '/' + c.initial);
    dialog.show();
    EXPECT_EQ(dialog.FilterIndex(), c.index);
    EXPECT_EQ(dialog.FileNameText(), c.initial);
    QComboBox *types = TypeCombo(&dialog);
    ASSERT_NE(types, nullptr);
    // The user sees the type names as the filter writes them.
    EXPECT_EQ(types->count(), 3);
    EXPECT_EQ(types->itemText(0), "JPEG Files (*.jpg)");
    EXPECT_EQ(types->itemText(2), "TIFF Files(*.tif)");
    QTest::keyClick(types, Qt::Key_Down);
    EXPECT_EQ(dialog.FilterIndex(), c.index + 1);
    EXPECT_EQ(dialog.FileNameText(), c.down);
    QTest::keyClick(types, Qt::Key_Up);
    QTest::keyClick(types, Qt::Key_Up);
    EXPECT_EQ(dialog.FileNameText(), c.up);
  }
}

TEST(QtPrompt, FileDialogs) {
  QTemporaryDir dir;
  QtPrompt prompt;
  // The save dialog answers with the name the chosen type rewrote.
  WhenModal([](QWidget *dialog) {
    QTest::keyClick(TypeCombo(dialog), Qt::Key_Down);
    static_cast<QDialog *>(dialog)->accept();
  });
  KorvelPrompt::FileAnswer answer = prompt.AskSaveFile(kSaveFilter, dir.path() + "/img.jpg");
  EXPECT_TRUE(answer.ok);
  EXPECT_EQ(answer.path, dir.path() + "/img.bmp");
  EXPECT_EQ(answer.filterIndex, 2);
  WhenModal([](QWidget *dialog) { QTest::keyClick(dialog, Qt::Key_Escape); });
  EXPECT_FALSE(prompt.AskSaveFile(kSaveFilter, dir.path() + "/img.jpg").ok);
  // The open dialog starts in the folder of a wildcard name, with no name typed.
  QString folder, typed;
  WhenModal([&](QWidget *dialog) {
    folder = static_cast<QFileDialog *>(dialog)->directory().absolutePath();
    QLineEdit *name = dialog->findChild<QLineEdit *>("fileNameEdit");
    typed = name->text();
    name->setText("a.bmp");
    static_cast<QDialog *>(dialog)->accept();
  });
  answer = prompt.AskOpenFile(kOpenFilter, dir.path() + "/*.jpg");
  EXPECT_EQ(folder, dir.path());
  EXPECT_EQ(typed, "");
  EXPECT_TRUE(answer.ok);
  EXPECT_EQ(answer.path, dir.path() + "/a.bmp");
}

TEST(QtPrompt, SavePhotoQuestion) {
  QtPrompt prompt;
  for (const auto &[id, result, word] : {std::tuple{1051, KorvelPrompt::IDOK, "NOTOALL"},
                                         {6, KorvelPrompt::IDOK, "YES"},
                                         {7, KorvelPrompt::IDOK, "NO"},
                                         {0, KorvelPrompt::IDCANCEL, "NOTOALL"}}) {  // 0: Escape
    QString text;
    QSize size;
    WhenModal([&, id = id](QWidget *dialog) {
      text = dialog->findChild<QLabel *>("1050")->text();
      size = dialog->size();
      EXPECT_EQ(dialog->windowTitle(), "Save Photo");
      EXPECT_TRUE(Button(dialog, 6)->isDefault());
      EXPECT_EQ(Button(dialog, 7)->text(), "No");
      Press(dialog, id);
    });
    const KorvelPrompt::SavePhotoAnswer answer = prompt.AskSavePhoto("Zib001.jpg");
    EXPECT_EQ(text, "Do you want to save your photo Zib001.jpg");
    EXPECT_EQ(size, QSize(279, 81));  // 186 x 50 dialog units
    EXPECT_EQ(answer.result, result) << id;
    EXPECT_EQ(answer.choice, word) << id;
  }
}

TEST(QtPrompt, MessageBoxesMapTheirButtons) {
  QtPrompt prompt;
  struct Case {
    int buttons;
    int press;  // a QMessageBox::StandardButton, or a key for none
    int result;
    int shown;  // buttons on the box
  };
  const int yes = QMessageBox::Yes, no = QMessageBox::No, esc = Qt::Key_Escape,
            ret = Qt::Key_Return, ok = KorvelPrompt::MB_OK, ync = KorvelPrompt::MB_YESNOCANCEL,
            yn = KorvelPrompt::MB_YESNO;
  const Case cases[] = {{ok, ret, 1, 1},  {ok, esc, 1, 1}, {ync, esc, 2, 3},
                        {ync, ret, 6, 3}, {ync, no, 7, 3}, {ync, yes, 6, 3},
                        {yn, yes, 6, 2},  {yn, no, 7, 2},  {yn, esc, 7, 2}};
  for (const Case &c : cases) {
    SCOPED_TRACE(std::to_string(c.buttons) + " " + std::to_string(c.press));
    QString title, text;
    int shown = 0;
    WhenModal([&](QWidget *widget) {
      auto *box = static_cast<QMessageBox *>(widget);
      title = box->windowTitle();
      text = box->text();
      shown = static_cast<int>(box->buttons().size());
      if (c.press == yes || c.press == no)
        box->button(QMessageBox::StandardButton(c.press))->click();
      else
        QTest::keyClick(box, Qt::Key(c.press));
    });
    EXPECT_EQ(prompt.MessageBox("Cannot open file x", c.buttons), c.result);
    EXPECT_EQ(title, "KorvelApp");
    EXPECT_EQ(text, "Cannot open file x");
    EXPECT_EQ(shown, c.shown);
  }
}

TEST(QtPrompt, GetPhotoDialog) {
  QtPrompt prompt;
  for (const auto &[id, result, camera] : {std::tuple{1034, KorvelPrompt::IDOK, true},
                                           {1035, KorvelPrompt::IDOK, false},
                                           {1036, KorvelPrompt::IDCANCEL, false},
                                           {0, KorvelPrompt::IDCANCEL, false}}) {  // 0: Escape
    QStringList sources;
    bool picture = false;
    WhenModal([&, id = id](QWidget *dialog) {
      EXPECT_EQ(dialog->windowTitle(), "Get Photo");
      const QComboBox *combo = dialog->findChild<QComboBox *>("1026");
      for (int i = 0; combo && i < combo->count(); ++i)
        sources << combo->itemText(i);
      const QLabel *label = dialog->findChild<QLabel *>("271");
      picture = label && !label->pixmap().isNull() && label->isVisible();
      EXPECT_EQ(Button(dialog, 1034)->text(), "Get Photo");
      EXPECT_EQ(Button(dialog, 1035)->text(), "Get Photo File");
      EXPECT_EQ(Button(dialog, 1036)->text(), "Cancel");
      Press(dialog, id);
    });
    const KorvelPrompt::GetPhotoAnswer answer = prompt.AskGetPhoto();
    EXPECT_EQ(answer.result, result) << id;
    EXPECT_EQ(answer.camera, camera) << id;
    EXPECT_TRUE(sources.isEmpty());  // no source given, none made up
    // The artwork is linked into the tests, so the picture shows.
    EXPECT_EQ(picture, QFile::exists(":/skins/271.png"));
  }
}

TEST(QtPrompt, ArtworkIsDoubleSizeOnScaledScreens) {
  const QPixmap one = QtPrompt::Artwork("271", 1.0);
  const QPixmap two = QtPrompt::Artwork("271", 2.0);
  ASSERT_FALSE(one.isNull());
  EXPECT_EQ(one.devicePixelRatio(), 1.0);
  EXPECT_EQ(two.devicePixelRatio(), 2.0);
  EXPECT_EQ(two.size(), one.size() * 2);
  EXPECT_EQ(two.deviceIndependentSize(), QSizeF(one.size()));
  EXPECT_EQ(QtPrompt::Artwork("271", 1.5).devicePixelRatio(), 2.0);
  EXPECT_TRUE(QtPrompt::Artwork("no-such-art", 2.0).isNull());
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
