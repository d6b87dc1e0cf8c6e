// The output commands the form's buttons run: printing, e-mail, the outside
// editor and the online service.
#pragma once

#include "share/outputcommands.h"

class CShareCommands : public COutputCommands {
 public:
  void OnPrint(const COutputContext &context) override;
  void OnEmail(const COutputContext &context) override;
  void OnSendToPhotoDeluxe(const COutputContext &context) override;
  void OnProjects(const COutputContext &context) override;
  void OnSharePhotos(const COutputContext &context) override;
  void OnVisitOnline(const COutputContext &context) override;
};
