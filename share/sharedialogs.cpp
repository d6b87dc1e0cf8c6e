// The seam's switchboard and the real dialogs: three small choosers of the
// program's own and Qt's printer dialog.
#include "share/sharedialogs.h"

#include <QDialog>
#include <QHBoxLayout>
#include <QLabel>
#include <QPrintDialog>
#include <QPrinter>
#include <QPushButton>
#include <QVBoxLayout>
#include <functional>

#include "photo/prompt.h"
#include "share/seam.h"

namespace {

// A modal chooser: a line of text above a row of buttons, each of which
// ends the dialog with its own outcome.
class Chooser {
 public:
  Chooser(const QString &title, const QString &text) : dialog_(KorvelPrompt::ParentWindow()) {
    dialog_.setWindowTitle(title);
    dialog_.setFont(QFont(QStringLiteral("MS Sans Serif"), 8));
    dialog_.setModal(true);
    auto *layout = new QVBoxLayout(&dialog_);
    auto *label = new QLabel(text, &dialog_);
    label->setWordWrap(true);
    layout->addWidget(label);
    layout->addLayout(buttons_);
    layout->setSizeConstraint(QLayout::SetFixedSize);
  }

  // A button that runs `chosen` and then accepts the dialog.
  QPushButton *AddChoice(int id, const QString &caption, std::function<void()> chosen) {
    auto *button = new QPushButton(caption, &dialog_);
    button->setObjectName(QString::number(id));
    QObject::connect(button, &QPushButton::clicked, &dialog_, [this, chosen] {
      chosen();
      dialog_.accept();
    });
    buttons_->addWidget(button);
    return button;
  }
  void AddCancel() {
    auto *button = new QPushButton(QStringLiteral("Cancel"), &dialog_);
    button->setObjectName(QString::number(CShareDialogs::IDCANCEL));
    QObject::connect(button, &QPushButton::clicked, &dialog_, &QDialog::reject);
    buttons_->addWidget(button);
  }
  int Run() {
    return dialog_.exec() == QDialog::Accepted ? CShareDialogs::IDOK : CShareDialogs::IDCANCEL;
  }

 private:
  QDialog dialog_;
  QHBoxLayout *buttons_ = new QHBoxLayout;
};

class QtShareDialogs : public CShareDialogs {
 public:
  PrintAnswer AskPrintChoice() override {
    PrintAnswer answer;
    Chooser chooser(QStringLiteral("Print Dialog"),
                    QStringLiteral("Order prints of your photos online, or print them yourself."));
    chooser.AddChoice(kOrderPhotosOnline, QStringLiteral("Order Photos Online"),
                      [&answer] { answer.choice = kOrderPhotosOnline; });
    chooser
        .AddChoice(kPrintPhoto, QStringLiteral("Print Photo"),
                   [&answer] { answer.choice = kPrintPhoto; })
        ->setDefault(true);
    answer.result = chooser.Run();
    return answer;
  }

  ProjectsAnswer AskProjects() override {
    ProjectsAnswer answer;
    Chooser chooser(QStringLiteral("Projects"),
                    QStringLiteral("Make more of your photo in a photo editor, or online."));
    for (const char *word : {"PrintHouse", "Online"}) {
      const QString choice = QString::fromLatin1(word);
      chooser.AddChoice(0, choice, [&answer, choice] { answer.choice = choice; });
    }
    chooser.AddCancel();
    answer.result = chooser.Run();
    return answer;
  }

  ShareAnswer AskShare() override {
    ShareAnswer answer;
    Chooser chooser(QStringLiteral("Share"),
                    QStringLiteral("Share your photos on Korvel Online, or send the current "
                                   "photo by e-mail."));
    chooser.AddChoice(IDOK, QStringLiteral("Share Online"), [&answer] { answer.choice = "SHARE"; })
        ->setDefault(true);
    chooser.AddChoice(1049, QStringLiteral("E-mail Photo"), [&answer] { answer.choice = "EMAIL"; });
    chooser.AddCancel();
    answer.result = chooser.Run();
    return answer;
  }

  bool AskPrinter(QPrinter *printer) override {
    QPrintDialog dialog(printer, KorvelPrompt::ParentWindow());
    dialog.setOption(QAbstractPrintDialog::PrintSelection, false);
    dialog.setOption(QAbstractPrintDialog::PrintPageRange, false);
    dialog.setOption(QAbstractPrintDialog::PrintCurrentPage, false);
    dialog.setOption(QAbstractPrintDialog::PrintToFile, false);
    dialog.setOption(QAbstractPrintDialog::PrintCollateCopies, true);
    dialog.setOption(QAbstractPrintDialog::PrintShowPageSize, true);
    return dialog.exec() == QDialog::Accepted;
  }
};

}  // namespace

CShareDialogs &CShareDialogs::Current() {
  if (CShareDialogs *installed = CSeamSlot<CShareDialogs>::Installed()) return *installed;
  static QtShareDialogs real;
  return real;
}

CShareDialogs *CShareDialogs::Install(CShareDialogs *dialogs) {
  return CSeamSlot<CShareDialogs>::Swap(dialogs);
}
