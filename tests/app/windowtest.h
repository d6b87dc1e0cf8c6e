// A fixture for tests that drive the whole main window: the application
// started as a user starts it, answers scripted, and nothing left unsaved at
// the end so the window closes without a question.
#pragma once

#include <gtest/gtest.h>

#include "app/formview.h"
#include "app/korvelapp.h"
#include "app/mainframe.h"
#include "photo/document.h"
#include "tests/app/scriptedprompt.h"

class MainWindowTest : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(app.InitInstance({"korvelapp"}));
    doc = app.Document();
    form = app.View();
  }
  void TearDown() override {
    for (int i = 0; i < doc->Count(); ++i)
      doc->ReplaceImage(i, doc->ImageAt(i), 0, QString());
    app.MainFrame()->close();
  }

  ScriptedPrompt prompt;
  CKorvelApp app;
  CKorvelAppDoc *doc = nullptr;
  CKorvelAppView *form = nullptr;
};
