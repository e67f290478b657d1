#include "app/tonemill_app.h"

#include <QDataStream>
#include <QDebug>
#include <QFileInfo>
#include <iostream>

#include "app/job_manager.h"
#include "app/qt_tonemill_app.h"
#include "nn/note_net_weights.h"
#include "platform/constants.h"
#include "platform/crash_handler.h"
#include "platform/meta_types.h"
#include "score/note_data.h"
#include "score/spectrogram.h"
#include "score/spectrogram_area.h"


namespace {

constexpr int kLastKeyIdx = 87;

}  // namespace

bool IsHeadless(int argc, char** argv) {
  for (int i = 0; i < argc; ++i) {
    const std::string arg = argv[i];
    if (arg == "-a" || arg == "--headless") return true;
  }
  return false;
}

TonemillApp::TonemillApp(const QString& data_folder_) : data_folder(data_folder_) {}

int TonemillApp::Run(int argc, char** argv) {
  headless = IsHeadless(argc, argv);
  // The editor window is not part of this build: a start without -a runs the same job
  // without it.
  const bool window_requested = !headless;
  headless = true;
  // A headless run needs no display: batch machines and servers have none.
  if (headless && qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM")) qputenv("QT_QPA_PLATFORM", "offscreen");
  QtTonemillApp app(argc, argv);
  // The job manager's worker thread must end while the application object still exists.
  struct ReleaseBeforeApp {
    std::shared_ptr<JobManager>& manager;
    ~ReleaseBeforeApp() { manager.reset(); }
  } release_before_app{job_manager};

  qRegisterMetaType<JobTasks::Tasks>("JobTasks::Tasks");
  qRegisterMetaType<std::shared_ptr<TranscriptionJob>>("std::shared_ptr<TranscriptionJob>");
  qRegisterMetaType<const Spectrogram*>("const Spectrogram*");
  qRegisterMetaType<SpectrogramArea>("SpectrogramArea");
  qRegisterMetaType<std::string>("std::string");
  qRegisterMetaType<QList<int>>("QList<int>");
  qRegisterMetaTypeStreamOperators<QList<int>>("QList<int>");

  QCoreApplication::setApplicationVersion(Constants::sw_version.ToString());
  QCoreApplication::setApplicationName(Constants::program_name);

  if (window_requested) std::cout << "The editor window is not in this build; running headless." << std::endl;

  job_manager = std::make_shared<JobManager>(headless, data_folder);
  Breakpad::CrashHandler::instance()->Init(job_manager->paths.data_path);
  // The note network's weights are in place before any job can start. A missing or broken
  // file does not stop the program: the note stage of each job then names the file.
  if (!SetNetWeights()) job_manager->LogStep(QString::fromStdString("Note weights not loaded: " + NetWeightsError()));

  if (!ProcessCommandLineArguments(app)) return 0;
  if (job_manager->StartupTasks()) return 0;

  if (job) job_manager->AddJob(job);
  return app.exec();
}

bool TonemillApp::ProcessCommandLineArguments(const QCoreApplication& app) {
  return ProcessCommandLineArguments(app.arguments());
}

bool TonemillApp::ProcessCommandLineArguments(const QStringList& arguments) {
  parser.setApplicationDescription("Tonemill command line");
  parser.addHelpOption();
  parser.addVersionOption();
  parser.addPositionalArgument("source", "Source file (mp3, wav, tmpj, etc.)");

  struct OptionText {
    const char* short_name;
    const char* long_name;
    const char* text;
    const char* value_name;
  };
  const OptionText options[] = {
      {"x", "musicxml", "Save the musicXML file", "musicXML full filename"},
      {"p", "pdf", "Save as PDF", "pdf full file name"},
      {"m", "midi", "Save a MIDI file", "midi full filename"},
      {"d", "tmpj", "Save an Tonemill data file", "tmpj full filename"},
      {"c", "spectrogram", "Save the spectrogram CSV file", "Spectrogram full filename"},
      {"a", "headless", "Headless (No GUI)", nullptr},
      {"n", "noNotes", "Don't find notes", nullptr},
      {"l", "getAudioLength", "Print the audio length in milliseconds and exit", nullptr},
      {"s", "start", "The audio time in milliseconds to begin processing", "start-time"},
      {"e", "end", "The audio time in milliseconds to end processing", "end-time"},
      {"j", "lowestKey", "The lowest note in a custom range for sheet music (1-88)", "lowest key"},
      {"k", "highestKey", "The highest note in a custom range for sheet music (1-88)", "highest key"},
      {"r", "removeOutside", "Remove notes outside the custom range for sheet music", nullptr},
      {"o", "moveToInside", "Move notes outside the custom range into range for sheet music", nullptr},
      {"b", "bassClefOnly", "Only use the bass clef for sheet music", nullptr},
      {"t", "trebleClefOnly", "Only use the treble clef for sheet music", nullptr},
      {"z", "threads", "Set threads/processor cores", "Number of threads to use"},
  };
  for (const OptionText& o : options) {
    const QStringList names{o.short_name, o.long_name};
    parser.addOption(o.value_name ? QCommandLineOption(names, o.text, o.value_name) : QCommandLineOption(names, o.text));
  }
  parser.process(arguments);

  const QStringList sources = parser.positionalArguments();
  if (sources.isEmpty()) return !headless;

  job = job_manager->NewJob();
  job->process_whole_file = true;
  job->freqs_per_note = Constants::kNeuralNetFrequenciesPerNote;
  job->musicxml_filename = parser.value("x");
  job->spectrogram_filename = parser.value("c");
  job->tmpj_filename = parser.value("d");
  job->midi_filename = parser.value("m");
  job->pdf_filename = parser.value("p");
  if (parser.isSet("l")) {
    job->get_audio_length = true;
    job->quit_when_done = true;
  }
  qDebug() << parser.value("e").toInt();

  if (parser.isSet("s")) job->start_time = parser.value("s").toInt(nullptr, 10) * 0.001;
  if (parser.isSet("e")) job->end_time = parser.value("e").toInt(nullptr, 10) * 0.001;
  if (job->start_time != 0.0 || job->end_time != 0.0) job->process_whole_file = false;

  CliModifiers& modifiers = job->cli_modifiers;
  bool range_failed = false;
  bool octave_failed = false;
  if (parser.isSet("j")) {
    const int key = parser.value("j").toInt() - 1;
    modifiers.lowest_keys.push_back(key);
    range_failed |= static_cast<unsigned>(key) > kLastKeyIdx;
  }
  if (parser.isSet("k")) {
    const int key = parser.value("k").toInt() - 1;
    modifiers.highest_keys.push_back(key);
    range_failed |= static_cast<unsigned>(key) > kLastKeyIdx;
    if (!modifiers.lowest_keys.empty() && key - modifiers.lowest_keys.back() + 1 < 12) octave_failed = true;
  }
  if (parser.isSet("r")) modifiers.remove_outside.push_back(true);
  if (parser.isSet("o")) modifiers.remove_outside.push_back(false);
  if (parser.isSet("b")) {
    // No key reaches the treble staff: bass only.
    modifiers.treble_clef_start_keys.push_back(NoteData::clef_highest_bound);
  } else if (parser.isSet("t")) {
    // Every key is on the treble staff.
    modifiers.treble_clef_start_keys.push_back(NoteData::clef_lowest_bound);
  }
  if (parser.isSet("z")) {
    const int threads = parser.value("z").toInt();
    job->thread_count = threads > 0 ? threads : 1;
  }

  if (range_failed) {
    std::cout << "Error: the lowest and highest notes must be between 1 and 88." << std::endl;
    job.reset();
    return false;
  }
  if (octave_failed) {
    std::cout << "Error: the lowest and highest notes cannot be less than an octave apart." << std::endl;
    job.reset();
    return false;
  }

  const bool wants_notes = !job->musicxml_filename.isEmpty() || !job->tmpj_filename.isEmpty() ||
                           !job->midi_filename.isEmpty() || !job->pdf_filename.isEmpty();
  job->find_notes = wants_notes || parser.optionNames().isEmpty();
  if (parser.isSet("n")) job->find_notes = false;

  const QString source = sources.first();
  job->input_filename = QFileInfo(source).absoluteFilePath();
  if (!QFileInfo::exists(job->input_filename))
    std::cout << "Warning: could not find input file " << job->input_filename.toStdString() << std::endl;

  job_manager->LogStep("Command line arguments: x=" + job->musicxml_filename + ", d=" + job->tmpj_filename +
                       ", m=" + job->midi_filename + ", c=" + job->spectrogram_filename +
                       ", n=" + job->notes_csv_filename + ", tr=" + job->training_spectrogram_filename +
                       ", p=" + job->pdf_filename + ", filename=" + QString(source).replace(",", "_"));

  if (!job->SaveFilenames().empty() || headless) job->quit_when_done = true;
  return true;
}
