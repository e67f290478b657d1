#pragma once

#include <QList>
#include <QMetaType>
#include <string>

// Value types that cross threads in queued signals and are not Qt's own.
Q_DECLARE_METATYPE(std::string)
