// The program's string table: the help pane's sentences, the outside-editor
// messages and the document string, looked up by resource number.
#pragma once

#include <QString>

// The string with resource number `id`, or an empty string for a number the
// table does not hold. 1017 and 1018 name the online service's site as the
// settings hold it (`online/site`).
QString LoadKorvelString(int id);

// The document string (number 128): application, (none), document name,
// (none), (none), type id, type name.
inline constexpr char kDocString[] = "KorvelApp\n\nKorvel\n\n\nKorvelApp.Document\nKorvel Document";
