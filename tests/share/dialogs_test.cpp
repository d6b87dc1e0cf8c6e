// The real choosers behind the dialog seam, driven as a user would: each
// button ends its dialog with the outcome the flows read.
#include <QApplication>
#include <QPushButton>
#include <QTimer>

#include "tests/share/sharetest.h"

namespace {

// Once a modal dialog shows, notes its title and clicks the button whose
// caption is `caption` ("" closes the dialog instead).
void AnswerWhenShown(const QString &caption, QString *seenTitle) {
  auto *timer = new QTimer;
  timer->setInterval(10);
  QObject::connect(timer, &QTimer::timeout, [=] {
    QWidget *modal = QApplication::activeModalWidget();
    if (!modal) return;
    timer->stop();
    timer->deleteLater();
    *seenTitle = modal->windowTitle();
    if (caption.isEmpty()) {
      modal->close();
      return;
    }
    for (QPushButton *button : modal->findChildren<QPushButton *>()) {
      if (button->text() == caption) return button->click();
    }
    modal->close();  // no such button: the test sees a cancel
  });
  timer->start();
}

class RealDialogs : public testing::Test {
 protected:
  RealDialogs() { previous_ = CShareDialogs::Install(nullptr); }
  ~RealDialogs() override { CShareDialogs::Install(previous_); }
  QString title;

 private:
  CShareDialogs *previous_ = nullptr;
};

TEST_F(RealDialogs, ChoosersReportTheButtonPressed) {
  CShareDialogs &dialogs = CShareDialogs::Current();

  AnswerWhenShown("Print Photo", &title);
  CShareDialogs::PrintAnswer print = dialogs.AskPrintChoice();
  EXPECT_EQ(title, "Print Dialog");
  EXPECT_EQ(print.result, CShareDialogs::IDOK);
  EXPECT_EQ(print.choice, CShareDialogs::kPrintPhoto);
  AnswerWhenShown("Order Photos Online", &title);
  print = dialogs.AskPrintChoice();
  EXPECT_EQ(print.result, CShareDialogs::IDOK);
  EXPECT_EQ(print.choice, CShareDialogs::kOrderPhotosOnline);
  AnswerWhenShown("", &title);
  EXPECT_EQ(dialogs.AskPrintChoice().result, CShareDialogs::IDCANCEL);

  for (const QString word : {"PrintHouse", "Online"}) {
    AnswerWhenShown(word, &title);
    const CShareDialogs::ProjectsAnswer projects = dialogs.AskProjects();
    EXPECT_EQ(title, "Projects");
    EXPECT_EQ(projects.result, CShareDialogs::IDOK);
    EXPECT_EQ(projects.choice, word);
  }
  AnswerWhenShown("Cancel", &title);
  EXPECT_EQ(dialogs.AskProjects().result, CShareDialogs::IDCANCEL);

  AnswerWhenShown("Share Online", &title);
  CShareDialogs::ShareAnswer share = dialogs.AskShare();
  EXPECT_EQ(title, "Share");
  EXPECT_EQ(share.result, CShareDialogs::IDOK);
  EXPECT_EQ(share.choice, "SHARE");
  AnswerWhenShown("E-mail Photo", &title);
  share = dialogs.AskShare();
  EXPECT_EQ(share.result, CShareDialogs::IDOK);
  EXPECT_EQ(share.choice, "EMAIL");
  AnswerWhenShown("Cancel", &title);
  EXPECT_EQ(dialogs.AskShare().result, CShareDialogs::IDCANCEL);
}

}  // namespace
