#pragma once

#include <QString>
#include <vector>

// Creates the folder of every file name in the list; names without a folder are skipped.
void EnsureFoldersExist(const std::vector<QString>& filenames);

// Replaces the last extension of `filename` with `extension` (given without the dot).
// A name without an extension gets one.
QString ChangeExtension(const QString& filename, const QString& extension);
