// The outside photo editor: the current photo saved as a JPEG file in the
// temporary folder and the editor started with that file.
//
// An editor is known by a ProgID. The setting editors/<ProgID> names, with
// ";" between them, the desktop entries that may stand for it, tried in
// order; "PhotoDeluxe.Image" defaults to org.gimp.GIMP.desktop;gimp.desktop.
// The first entry found (see FindDesktopEntry) gives the command.
#pragma once

#include <QString>

#include "share/desktopentry.h"

class CKorvelAppDoc;

// The ProgID the projects chooser's "PrintHouse" choice goes through.
extern const char kPhotoDeluxeProgId[];

// The command that starts the editor registered for `progId`, empty when
// none is; with its parts, for starting it.
bool FindServerCommand(const QString &progId, CDesktopCommand *command);
// The command as one line, field codes taken out; empty when none.
QString GetServerPath(const QString &progId);

// Where the JPEG goes for temporary file `tmpPath`: cut at the path's first
// dot and ".jpg" appended. A dot in a folder name thus puts the JPEG beside
// that folder rather than in it, as the program has always done.
QString EditorFileNameFor(const QString &tmpPath);

// The hand-off of the current photo to the editor, with its messages.
void SendToPhotoDeluxe(const CKorvelAppDoc *doc);
