#pragma once

#include <QDir>
#include <QString>

// Every folder and file name of the installation and of the user's data, computed once.
class Paths {
 public:
  // `app_dir_override` replaces the executable's folder and `data_folder` the user data
  // folder; both are normally empty.
  explicit Paths(const QString& app_dir_override = QString(), const QString& data_folder = QString());

  void SetPaths();

  QString temp_crash_log;      // the step log, ".temp_crash_log.dat" in the data folder
  QString data_path;           // absolute path of the data folder
  QString crash_reports_path;  // where the system leaves its crash reports
  QDir data_dir;
  QDir app_dir;
  QString app_path;
  QString resources_path;
  QString updater_path;      // program of the update step
  QString piano_key_prefix;  // "piano_key_" in the resource folder
  QString preferences_file;  // "Preferences.ini" in the data folder
  QString languages_path;
  QString temporary_xml;  // "temporary_file.xml" in the data folder
  QDir languages_dir;
  QString data_folder;
};
