#pragma once

#include <QTemporaryDir>
#include <memory>

#include "app/job_manager.h"

// A headless job manager whose data folder is a fresh temporary folder and whose
// language files are the source tree's.
inline std::shared_ptr<JobManager> MakeTestJobManager(const QTemporaryDir& data) {
  return std::make_shared<JobManager>(true, data.path(), QString(TONEMILL_SOURCE_DIR) + "/resources");
}
