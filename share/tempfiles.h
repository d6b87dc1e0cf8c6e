// Temporary file names as the output commands make them: a new empty file
// named prefix + four hexadecimal digits + ".tmp" in a folder, created so that
// no other file of that name existed before.
#pragma once

#include <QString>

// Creates the empty file in `folder` (with or without a trailing separator)
// and returns its full path, or an empty string when none could be made.
QString MakeTempFileName(const QString &folder, const QString &prefix);
