#include "platform/language_strings.h"

#include <gtest/gtest.h>

#include <QByteArray>
#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

namespace {

const QString kShippedLanguages = TONEMILL_SOURCE_DIR "/resources/TM_resources/languages";

QByteArray ReadAll(const QString& path) {
  QFile file(path);
  if (!file.open(QIODevice::ReadOnly)) return {};
  return file.readAll();
}

std::string Joined(const std::vector<std::string>& names) {
  std::string text;
  for (const std::string& name : names) text += (text.empty() ? "" : ", ") + name;
  return text;
}

// The shipped English file is the fallback of every other language, so each key the program
// knows must have a real text there, and every member must be a key the program reads.
TEST(EnglishLanguageFile, HoldsATextForEveryKeyAndNothingElse) {
  const QString path = kShippedLanguages + "/English.json";
  const QByteArray utf8 = ReadAll(path);
  ASSERT_FALSE(utf8.isEmpty()) << "cannot read " << path.toStdString();
  nlohmann::json object;
  ASSERT_NO_THROW(object = nlohmann::json::parse(utf8.constData(), utf8.constData() + utf8.size()));
  ASSERT_TRUE(object.is_object());

  std::vector<std::string> missing, empty, not_text, unknown;
  for (const QString& key : LanguageStrings::Keys()) {
    const auto it = object.find(key.toStdString());
    if (it == object.end() || it->is_null()) {
      missing.push_back(key.toStdString());
    } else if (!it->is_string()) {
      not_text.push_back(key.toStdString());
    } else if (it->get<std::string>().find_first_not_of(" \t\n") == std::string::npos) {
      empty.push_back(key.toStdString());
    }
  }
  for (const auto& member : object.items()) {
    if (!LanguageStrings::Keys().contains(QString::fromStdString(member.key())))
      unknown.push_back(member.key());
  }
  EXPECT_TRUE(missing.empty()) << "English.json lacks the keys: " << Joined(missing);
  EXPECT_TRUE(empty.empty()) << "English.json has blank texts for: " << Joined(empty);
  EXPECT_TRUE(not_text.empty()) << "English.json has non-string values for: " << Joined(not_text);
  EXPECT_TRUE(unknown.empty()) << "English.json has members the program never reads (misspelt?): "
                               << Joined(unknown);
  EXPECT_EQ(object.value("LANGUAGE", ""), "English");
}

TEST(EnglishLanguageFile, LoadsThroughLanguageStringsWithEveryTextSet) {
  LanguageStrings strings(QDir(kShippedLanguages), "English");
  EXPECT_EQ(strings.GetLanguage(), "English");
  std::vector<std::string> blank;
  for (const QString& key : LanguageStrings::Keys()) {
    const std::string* text = strings.Text(key);
    ASSERT_NE(text, nullptr) << key.toStdString();
    if (text->empty()) blank.push_back(key.toStdString());
  }
  EXPECT_TRUE(blank.empty()) << "blank after loading: " << Joined(blank);
  // Texts that callers fill in with QString::arg keep their marker.
  EXPECT_NE(strings.UPDATE_IS_AVAILABLE.find("%1"), std::string::npos);
  // The saver compares the last preset's name with this text.
  EXPECT_EQ(strings.CUSTOM, "Custom");
}

class LanguageStringsTest : public ::testing::Test {
 protected:
  void Write(const QString& name, const QByteArray& content) {
    QFile file(folder_.filePath(name));
    ASSERT_TRUE(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
    ASSERT_EQ(file.write(content), content.size());
  }
  QDir Folder() const { return QDir(folder_.path()); }

  // Collects every Message the strings emit; direct connection, so no event loop is needed.
  void Watch(LanguageStrings* strings) {
    QObject::connect(strings, &LanguageStrings::Message, [this](std::string text, bool is_fatal) {
      messages_.push_back({text, is_fatal});
    });
  }

  QTemporaryDir folder_;
  std::vector<std::pair<std::string, bool>> messages_;
};

TEST_F(LanguageStringsTest, LoadsTheRequestedLanguageByBaseName) {
  Write("Deutsch.json", R"j({"LANGUAGE": "Deutsch", "GUI_MENU_FILE": "Datei"})j");
  Write("English.json", R"j({"LANGUAGE": "English", "GUI_MENU_FILE": "File"})j");
  LanguageStrings strings(Folder(), "Deutsch");
  EXPECT_EQ(strings.GetLanguage(), "Deutsch");
  EXPECT_EQ(strings.GUI_MENU_FILE, "Datei");

  strings.SetLanguage("English");
  EXPECT_EQ(strings.GetLanguage(), "English");
  EXPECT_EQ(strings.GUI_MENU_FILE, "File");
  EXPECT_EQ(strings.AvailableLanguages(), QStringList({"Deutsch", "English"}));
}

TEST_F(LanguageStringsTest, UnknownLanguageFallsBackToTheFirstEnglishOne) {
  Write("Afrikaans.json", R"j({"LANGUAGE": "Afrikaans", "GUI_MENU_FILE": "Lêer"})j");
  Write("Deutsch.json", R"j({"LANGUAGE": "Deutsch", "GUI_MENU_FILE": "Datei"})j");
  Write("Simple English.json", R"j({"LANGUAGE": "Simple English", "GUI_MENU_FILE": "File"})j");
  Write("US english.json", R"j({"LANGUAGE": "US english", "GUI_MENU_FILE": "File (US)"})j");
  LanguageStrings strings(Folder(), "Klingon");
  EXPECT_EQ(strings.GetLanguage(), "Simple English");
  EXPECT_EQ(strings.GUI_MENU_FILE, "File");
}

TEST_F(LanguageStringsTest, WithoutEnglishTheFirstAvailableLanguageLoads) {
  Write("Italiano.json", R"j({"LANGUAGE": "Italiano", "GUI_MENU_FILE": "File (it)"})j");
  Write("Deutsch.json", R"j({"LANGUAGE": "Deutsch", "GUI_MENU_FILE": "Datei"})j");
  LanguageStrings strings(Folder(), "Klingon");
  EXPECT_EQ(strings.GetLanguage(), "Deutsch");
  EXPECT_EQ(strings.GUI_MENU_FILE, "Datei");
}

TEST_F(LanguageStringsTest, EmptyFolderLeavesEveryTextBlankWithoutFailing) {
  LanguageStrings strings(Folder(), "English");
  EXPECT_TRUE(strings.GetLanguage().isEmpty());
  EXPECT_TRUE(strings.AvailableLanguages().isEmpty());
  EXPECT_TRUE(strings.GUI_MENU_FILE.empty());
}

TEST_F(LanguageStringsTest, NullAndMissingKeysStayBlankAfterAFullLoad) {
  Write("Full.json", R"j({"LANGUAGE": "Full", "GUI_MENU_FILE": "File", "GUI_MENU_EDIT": "Edit",
                         "GUI_MENU_VIEW": "View", "YES": "Yes"})j");
  Write("Partial.json", R"j({"LANGUAGE": "Partial", "GUI_MENU_FILE": null, "YES": 1, "NO": "Nein"})j");
  LanguageStrings strings(Folder(), "Full");
  Watch(&strings);
  ASSERT_EQ(strings.GUI_MENU_EDIT, "Edit");

  strings.SetLanguage("Partial");
  EXPECT_EQ(strings.GetLanguage(), "Partial");
  EXPECT_TRUE(strings.GUI_MENU_FILE.empty());  // null counts as missing, not as a stale text
  EXPECT_TRUE(strings.GUI_MENU_EDIT.empty());  // absent: a partial file leaves blanks
  EXPECT_TRUE(strings.GUI_MENU_VIEW.empty());
  EXPECT_TRUE(strings.YES.empty());  // a number is no text
  EXPECT_EQ(strings.NO, "Nein");
  EXPECT_TRUE(messages_.empty());
}

TEST_F(LanguageStringsTest, BrokenFilesReportByNameAndKeepTheLoadedTexts) {
  Write("Good.json", R"j({"LANGUAGE": "Good", "GUI_MENU_FILE": "File", "NO": "No"})j");
  Write("Garbage.json", "this is not JSON at all \x01\xff");
  Write("Truncated.json", R"j({"LANGUAGE": "Truncated", "GUI_MENU_FILE": "Dat)j");
  Write("Array.json", R"j(["LANGUAGE", "GUI_MENU_FILE"])j");
  Write("Empty.json", "");
  LanguageStrings strings(Folder(), "Good");
  Watch(&strings);

  for (const QString name : {"Garbage.json", "Truncated.json", "Array.json", "Empty.json"}) {
    messages_.clear();
    EXPECT_FALSE(strings.LoadFile(Folder().filePath(name))) << name.toStdString();
    ASSERT_EQ(messages_.size(), 1u) << name.toStdString();
    EXPECT_NE(messages_[0].first.find(name.toStdString()), std::string::npos) << messages_[0].first;
    EXPECT_FALSE(messages_[0].second);  // a bad language file never ends the program
    EXPECT_EQ(strings.GUI_MENU_FILE, "File") << name.toStdString();
    EXPECT_EQ(strings.NO, "No") << name.toStdString();
  }

  messages_.clear();
  EXPECT_FALSE(strings.LoadFile(Folder().filePath("Absent.json")));
  EXPECT_EQ(messages_.size(), 1u);
  EXPECT_EQ(strings.GUI_MENU_FILE, "File");
}

TEST_F(LanguageStringsTest, ABrokenRequestedLanguageFallsBackToEnglish) {
  Write("Deutsch.json", R"j({"LANGUAGE": "Deutsch", "GUI_MENU_FILE": )j");
  Write("English.json", R"j({"LANGUAGE": "English", "GUI_MENU_FILE": "File"})j");
  LanguageStrings strings(Folder(), "English");
  Watch(&strings);
  strings.SetLanguage("Deutsch");
  EXPECT_EQ(messages_.size(), 1u);
  EXPECT_EQ(strings.GetLanguage(), "English");
  EXPECT_EQ(strings.GUI_MENU_FILE, "File");
}

TEST_F(LanguageStringsTest, NonAsciiTextsArriveAsUtf8) {
  Write("Français.json", u8R"j({"LANGUAGE": "Français", "GUI_MENU_FILE": "Fichier…", "NO": "Non ♭"})j");
  LanguageStrings strings(Folder(), QString::fromUtf8(u8"Français"));
  EXPECT_EQ(strings.GetLanguage(), QString::fromUtf8(u8"Français"));
  EXPECT_EQ(strings.LANGUAGE, u8"Français");
  EXPECT_EQ(strings.GUI_MENU_FILE, u8"Fichier…");
  EXPECT_EQ(strings.NO, u8"Non ♭");
}

}  // namespace
