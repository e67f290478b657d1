#pragma once

#include <QDir>
#include <QObject>
#include <QString>
#include <QStringList>
#include <string>

// Every translated text of the program as a named member, loaded from one JSON file per
// language ("English.json", "Deutsch.json", ...). A key missing from a file stays empty.
class LanguageStrings : public QObject {
  Q_OBJECT

 public:
  LanguageStrings(const QDir& folder, const QString& language);

  // Loads `name`, falling back to the first language whose name holds "english", then
  // to the first available one. An empty name means the system's language.
  void SetLanguage(const QString& name);
  QString GetLanguage() const { return QString::fromStdString(language_); }
  QStringList AvailableLanguages() const;
  QString LocalLanguage() const;
  bool TryToLoad(const QString& name);
  bool LoadFile(const QString& path);

  // The keys in field order, and a key's current text (null for an unknown key).
  static const QStringList& Keys();
  const std::string* Text(const QString& key) const;

#define TONEMILL_LANGUAGE_KEY(name) std::string name;
#include "platform/language_keys.h"
#undef TONEMILL_LANGUAGE_KEY

 signals:
  void Message(std::string text, bool is_fatal);

 private:
  QDir languages_folder_;
  std::string language_;
};
