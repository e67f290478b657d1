#pragma once

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QStandardPaths>
#include <QString>
#include <QTemporaryDir>
#include <ostream>

// Lets GoogleTest print QString values in failure messages.
inline void PrintTo(const QString& text, std::ostream* out) { *out << '"' << text.toStdString() << '"'; }

// Validation of a MusicXML text against the MusicXML 3.0 schema with xmllint, offline. Skipped
// (with the reason in `output`) where the schema files or xmllint are not installed.
struct MusicXmlValidation {
  bool skipped = false;
  bool valid = false;
  QString output;
};

inline QString MusicXmlSchemaPath() {
  return QDir::cleanPath(QStringLiteral(TONEMILL_SOURCE_DIR) +
                         "/../shared/musicxml/v3.0/schema/musicxml.local.xsd");
}

inline QString MusicXmlHeader() {
  return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
         "<!DOCTYPE score-partwise PUBLIC \"-//Recordare//DTD MusicXML 3.0 Partwise//EN\" "
         "\"http://www.musicxml.org/dtds/partwise.dtd\">\n";
}

inline MusicXmlValidation ValidateMusicXml(const QString& text) {
  MusicXmlValidation result;
  const QString schema = MusicXmlSchemaPath();
  if (!QFileInfo::exists(schema)) {
    result.skipped = true;
    result.output = "NOTICE: MusicXML schema not found at " + schema + "; schema validation skipped";
    return result;
  }
  const QString xmllint = QStandardPaths::findExecutable("xmllint");
  if (xmllint.isEmpty()) {
    result.skipped = true;
    result.output = "NOTICE: xmllint (libxml2-utils) not installed; schema validation skipped";
    return result;
  }
  QTemporaryDir dir;
  const QString path = dir.filePath("score.musicxml");
  QFile file(path);
  if (!file.open(QIODevice::WriteOnly)) {
    result.output = "could not write " + path;
    return result;
  }
  file.write(text.toUtf8());
  file.close();
  QProcess process;
  process.setProcessChannelMode(QProcess::MergedChannels);
  process.start(xmllint, {"--noout", "--nonet", "--schema", schema, path});
  process.waitForFinished(60000);
  result.output = QString::fromUtf8(process.readAll());
  result.valid = process.exitStatus() == QProcess::NormalExit && process.exitCode() == 0;
  return result;
}
