#include "platform/paths.h"

#include <QCoreApplication>
#include <QStandardPaths>

Paths::Paths(const QString& app_dir_override, const QString& data_folder_)
    : data_folder(data_folder_) {
  app_dir = QDir(app_dir_override.isEmpty() ? QCoreApplication::applicationDirPath() : app_dir_override);
  SetPaths();
}

void Paths::SetPaths() {
  app_path = app_dir.absolutePath();

  // A bundle keeps its resources in ../Resources/TM_resources; a plain folder keeps
  // TM_resources beside the program. A failing cd stays where it is, so both resolve.
  QDir resources = app_dir;
  resources.cd("../Resources");
  resources.cd("TM_resources");
  resources_path = resources.absolutePath();
  languages_dir = QDir(resources.absoluteFilePath("languages"));
  languages_path = languages_dir.absolutePath();
  piano_key_prefix = resources.absoluteFilePath("piano_key_");
  updater_path = app_dir.absoluteFilePath("updater");

  const QString data = data_folder.isEmpty()
                           ? QStandardPaths::writableLocation(QStandardPaths::AppLocalDataLocation)
                           : data_folder;
  data_dir = QDir(data);
  if (!data_dir.exists()) QDir().mkpath(data);
  data_path = data_dir.absolutePath();

  preferences_file = data_dir.absoluteFilePath("Preferences.ini");
  temporary_xml = data_dir.absoluteFilePath("temporary_file.xml");
  temp_crash_log = data_dir.absoluteFilePath(".temp_crash_log.dat");

  QDir reports = data_dir;
  reports.cdUp();
  reports.cdUp();
  crash_reports_path = QDir::cleanPath(reports.absolutePath() + "/Logs/DiagnosticReports");
}
