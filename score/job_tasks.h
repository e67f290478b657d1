#pragma once

#include <QMetaType>

namespace JobTasks {

// The phases of a job, each with its own share of the progress bar.
enum Tasks {
  kAudio = 0,
  kBeats = 1,
  kSpectrogramFirstPass = 2,
  kSpectrogramSecondPass = 3,
  kNotes = 5,
  kSheetMusic = 6,
  kSpectrogramRecalculation = 7,
};

}  // namespace JobTasks

Q_DECLARE_METATYPE(JobTasks::Tasks)
