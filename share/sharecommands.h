// The output commands the form's buttons run: printing, e-mail, the outside
// editor and the online service.
#pragma once

#include "app/outputcommands.h"

class CShareCommands : public COutputCommands {
 public:
  void OnPrint(CKorvelAppView *view) override;
  void OnEmail(CKorvelAppView *view) override;
  void OnSendToPhotoDeluxe(CKorvelAppView *view) override;
  void OnProjects(CKorvelAppView *view) override;
  void OnSharePhotos(CKorvelAppView *view) override;
  void OnVisitOnline(CKorvelAppView *view) override;
};
