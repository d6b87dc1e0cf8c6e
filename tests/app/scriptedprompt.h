// A KorvelPrompt for tests: records every message and question, answers from
// queues filled by the test (IDOK / cancelled dialogs when a queue is empty),
// and puts itself in place for as long as it lives.
#pragma once

#include <QString>
#include <QStringList>
#include <deque>

#include "photo/prompt.h"

class ScriptedPrompt : public KorvelPrompt {
 public:
  ScriptedPrompt() { previous_ = Install(this); }
  ~ScriptedPrompt() override { Install(previous_); }

  int MessageBox(const QString &text, int buttons) override {
    messages.append(text);
    buttonSets.push_back(buttons);
    return Pop(answers, buttons == MB_OK ? int(IDOK) : int(IDCANCEL));
  }
  // An empty queue answers OK with the box left as it was shown.
  CheckAnswer MessageBoxWithCheck(const QString &text, const QString &check, bool checked,
                                  int buttons) override {
    checkMessages.append(text);
    checkLabels.append(check);
    checkShown.push_back(checked);
    checkButtonSets.push_back(buttons);
    return Pop(checkAnswers, CheckAnswer{IDOK, checked});
  }
  SavePhotoAnswer AskSavePhoto(const QString &fileName) override {
    savePhotoNames.append(fileName);
    return Pop(savePhoto, SavePhotoAnswer{});
  }
  FileAnswer AskOpenFile(const QString &filter, const QString &initial) override {
    openFilters.append(filter);
    openInitials.append(initial);
    return Pop(openFiles, FileAnswer{});
  }
  // Asked like AskOpenFile; a test that queued no lists answers from the
  // single-file queue, a chosen file being a list of one.
  FilesAnswer AskOpenFiles(const QString &filter, const QString &initial) override {
    openFilters.append(filter);
    openInitials.append(initial);
    ++openManyAsked;
    if (!openFileLists.empty()) return Pop(openFileLists, FilesAnswer{});
    const FileAnswer one = Pop(openFiles, FileAnswer{});
    return FilesAnswer{one.ok, one.ok ? QStringList{one.path} : QStringList{}, one.filterIndex};
  }
  FileAnswer AskSaveFile(const QString &filter, const QString &initial) override {
    saveFilters.append(filter);
    saveInitials.append(initial);
    return Pop(saveFiles, FileAnswer{});
  }
  GetPhotoAnswer AskGetPhoto(const QStringList &, int) override {
    ++getPhotoAsked;
    return Pop(getPhoto, GetPhotoAnswer{});
  }
  void ShowAbout() override { ++aboutShown; }
  void Beep() override { ++beeps; }

  // What was asked.
  QStringList messages, checkMessages, checkLabels, savePhotoNames, openFilters, openInitials,
      saveFilters, saveInitials;
  std::deque<int> buttonSets;
  std::deque<int> checkButtonSets;
  std::deque<bool> checkShown;  // how each check box was ticked when shown
  int getPhotoAsked = 0, aboutShown = 0, beeps = 0, openManyAsked = 0;
  // What to answer, first in first out.
  std::deque<int> answers;
  std::deque<CheckAnswer> checkAnswers;
  std::deque<SavePhotoAnswer> savePhoto;
  std::deque<FileAnswer> openFiles, saveFiles;
  std::deque<FilesAnswer> openFileLists;
  std::deque<GetPhotoAnswer> getPhoto;

 private:
  template <class T>
  static T Pop(std::deque<T> &queue, T otherwise) {
    if (queue.empty()) return otherwise;
    T front = queue.front();
    queue.pop_front();
    return front;
  }

  KorvelPrompt *previous_ = nullptr;
};
