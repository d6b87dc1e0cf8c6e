// The real choosers behind the dialog seam, driven as a user would, and the
// commands that end with a message or a cancel instead of any output.
#include <QApplication>
#include <QPushButton>
#include <QTimer>

#include "photo/strings.h"
#include "tests/share/sharetest.h"

namespace {

// Once a modal dialog shows, notes its title and clicks the button whose
// caption is `caption`; "" (or no such button) closes the dialog instead.
void AnswerWhenShown(const QString &caption, QString *seenTitle) {
  auto *timer = new QTimer;
  timer->setInterval(10);
  QObject::connect(timer, &QTimer::timeout, [=] {
    QWidget *modal = QApplication::activeModalWidget();
    if (!modal) return;
    timer->stop();
    timer->deleteLater();
    *seenTitle = modal->windowTitle();
    for (QPushButton *button : modal->findChildren<QPushButton *>())
      if (!caption.isEmpty() && button->text() == caption) return button->click();
    modal->close();
  });
  timer->start();
}

// What a chooser said: its choice after OK, "cancel" otherwise.
template <class T>
QString Said(const T &answer) {
  return answer.result == CShareDialogs::IDOK ? QVariant(answer.choice).toString() : "cancel";
}

TEST(RealDialogs, ChoosersReportTheButtonPressed) {
  CShareDialogs *previous = CShareDialogs::Install(nullptr);
  CShareDialogs &dialogs = CShareDialogs::Current();
  const struct {
    const char *title, *button, *said;
  } cases[] = {{"Print Dialog", "Print Photo", "1039"},          // kPrintPhoto
               {"Print Dialog", "Order Photos Online", "1038"},  // kOrderPhotosOnline
               {"Print Dialog", "", "cancel"},
               {"Projects", "PrintHouse", "PrintHouse"},
               {"Projects", "Online", "Online"},
               {"Projects", "Cancel", "cancel"},
               {"Share", "Share Online", "SHARE"},
               {"Share", "E-mail Photo", "EMAIL"},
               {"Share", "Cancel", "cancel"}};
  for (const auto &c : cases) {
    SCOPED_TRACE(c.button);
    QString title;
    AnswerWhenShown(c.button, &title);
    const QString dialog = c.title;
    EXPECT_EQ(dialog == "Print Dialog" ? Said(dialogs.AskPrintChoice())
              : dialog == "Projects"   ? Said(dialogs.AskProjects())
                                       : Said(dialogs.AskShare()),
              c.said);
    EXPECT_EQ(title, c.title);
  }
  CShareDialogs::Install(previous);
}

// Without one usable photo or an editor, or cancelled in a dialog: the help
// (0: left as it was), the dialogs asked, the message, and nothing written or
// opened.
TEST_F(ShareTest, CommandsThatEndWithoutOutput) {
  enum Photos { kNone, kEmpty, kTwo, kOne };
  doc->AddImage(nullptr, 0, "/photos/empty.jpg");
  Add("/photos/a.jpg");
  Add("/photos/b.jpg");
  const struct {
    int command;
    Photos photos;
    bool ok;  // how the command's own dialog ends
    int help;
    QString asked, message;
  } cases[] = {{1032, kNone, true, 1004, "Print Dialog",
                "Please select an image that you would like to print"},
               {1049, kNone, true, 0, "", "Please select an image that you would like to e-mail"},
               {1023, kNone, true, 1003, "Projects", LoadKorvelString(1022)},
               {1037, kNone, true, 1018, "Share",
                "Please select an image or images that you would like to order online"},
               {1032, kEmpty, true, 1004, "Print Dialog", "Unable to print the image"},
               {1049, kEmpty, true, 0, "", "Unable to e-mail the image. Please try again"},
               {1023, kEmpty, true, 1003, "Projects", LoadKorvelString(1023)},
               {1023, kTwo, true, 1003, "Projects",
                "Please select only one image that you would like to send to PhotoDeluxe"},
               {1023, kOne, true, 1003, "Projects", LoadKorvelString(1024)},  // no editor
               {1032, kOne, false, 0, "Print Dialog", ""},
               {1032, kOne, true, 1004, "Print Dialog Printer", ""},
               {1037, kOne, false, 1018, "Share", ""},
               {1023, kOne, false, 1003, "Projects", ""}};
  for (const auto &c : cases) {
    SCOPED_TRACE(c.command);
    SCOPED_TRACE(c.message.toStdString());
    doc->SetCurrentIndex(c.photos == kNone ? -1 : c.photos == kEmpty ? 0 : 1);
    doc->Selection() = c.photos == kTwo ? std::vector<uint32_t>{1, 2} : std::vector<uint32_t>{};
    dialogs.asked.clear();
    prompt.messages.clear();
    form->SetHelpText(1001);
    Run(c.command, c.ok);
    EXPECT_EQ(Help(), LoadKorvelString(c.help ? c.help : 1001));
    EXPECT_EQ(dialogs.asked.join(' '), c.asked);
    EXPECT_EQ(prompt.messages, c.message.isEmpty() ? QStringList() : QStringList{c.message});
    EXPECT_EQ(Files(temp.path(), "*") + Files(photos.path(), "*"), QStringList());
    EXPECT_TRUE(launcher.urls.isEmpty() && launcher.started.isEmpty());
  }
}

}  // namespace
