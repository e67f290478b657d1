#include "platform/language_strings.h"

#include <QDirIterator>
#include <QFile>
#include <QFileInfo>
#include <QLocale>
#include <QTextStream>
#include <iostream>
#include <nlohmann/json.hpp>

LanguageStrings::LanguageStrings(const QDir& folder, const QString& language) : languages_folder_(folder) {
  SetLanguage(language);
}

void LanguageStrings::SetLanguage(const QString& requested) {
  const QString name = requested.isEmpty() ? LocalLanguage() : requested;
  if (TryToLoad(name)) {
    language_ = name.toStdString();
    return;
  }
  const QStringList available = AvailableLanguages();
  for (const QString& candidate : available) {
    if (candidate.toLower().contains("english") && TryToLoad(candidate)) {
      language_ = candidate.toStdString();
      return;
    }
  }
  if (!available.isEmpty() && TryToLoad(available.first())) language_ = available.first().toStdString();
}

QStringList LanguageStrings::AvailableLanguages() const {
  QStringList names;
  QDirIterator it(languages_folder_.absolutePath(), QDir::Files);
  while (it.hasNext()) {
    it.next();
    names.append(it.fileInfo().completeBaseName());
  }
  names.sort();
  return names;
}

QString LanguageStrings::LocalLanguage() const {
  const QLocale locale = QLocale::system();
  QString name;
  switch (locale.language()) {
    case QLocale::Chinese:
      name = locale.script() == QLocale::TraditionalChineseScript ? QString::fromUtf8("繁體中文")
                                                                   : QString::fromUtf8("简体中文");
      break;
    case QLocale::Dutch: name = "Nederlands"; break;
    case QLocale::English: name = "English"; break;
    case QLocale::French: name = QString::fromUtf8("Français"); break;
    case QLocale::German: name = "Deutsch"; break;
    case QLocale::Italian: name = "Italiano"; break;
    case QLocale::Spanish: name = QString::fromUtf8("Español"); break;
    default: break;
  }
  if (name.isEmpty() || !AvailableLanguages().contains(name)) return "English";
  return name;
}

bool LanguageStrings::TryToLoad(const QString& name) {
  QDirIterator it(languages_folder_.absolutePath(), QDir::Files);
  while (it.hasNext()) {
    it.next();
    if (it.fileInfo().completeBaseName() == name) return LoadFile(it.fileInfo().absoluteFilePath());
  }
  std::cout << "Could not find language " << name.toStdString() << " in "
            << languages_folder_.absolutePath().toStdString() << std::endl;
  return false;
}

bool LanguageStrings::LoadFile(const QString& path) {
  QFile file(path);
  if (!file.open(QIODevice::ReadOnly | QIODevice::Text)) {
    emit Message(QFileInfo(path).fileName().toStdString() + ": " + file.errorString().toStdString(), false);
    return false;
  }
  const QByteArray utf8 = file.readAll();
  try {
    const nlohmann::json object = nlohmann::json::parse(utf8.constData(), utf8.constData() + utf8.size());
    if (!object.is_object()) throw std::runtime_error("the file does not hold one JSON object");
    auto read = [&](const char* key, std::string& field) {
      field.clear();
      const auto it = object.find(key);
      if (it != object.end() && it->is_string()) field = it->get<std::string>();
    };
#define TONEMILL_LANGUAGE_KEY(name) read(#name, name);
#include "platform/language_keys.h"
#undef TONEMILL_LANGUAGE_KEY
  } catch (const std::exception& e) {
    emit Message(QFileInfo(path).fileName().toStdString() + ": " + e.what(), false);
    return false;
  }
  return true;
}

const QStringList& LanguageStrings::Keys() {
  static const QStringList keys = {
#define TONEMILL_LANGUAGE_KEY(name) QStringLiteral(#name),
#include "platform/language_keys.h"
#undef TONEMILL_LANGUAGE_KEY
  };
  return keys;
}

const std::string* LanguageStrings::Text(const QString& key) const {
#define TONEMILL_LANGUAGE_KEY(name) \
  if (key == QLatin1String(#name)) return &name;
#include "platform/language_keys.h"
#undef TONEMILL_LANGUAGE_KEY
  return nullptr;
}
