// One place names the settings file, so every layer reads the same choices.
#include "photo/settings.h"

std::unique_ptr<QSettings> KorvelSettings() {
  return std::make_unique<QSettings>("Local AppWizard-Generated Applications", "KorvelApp");
}
