// The settings every part of the program shares, kept where the first release
// kept them so an upgrade finds the user's choices.
#pragma once

#include <QSettings>
#include <memory>

std::unique_ptr<QSettings> KorvelSettings();
