#pragma once

#include <QDialog>
#include <QString>
#include <string>
#include <utility>
#include <vector>

#include "app/base/Options.h"

class QDialogButtonBox;
class QFormLayout;
class QLabel;
class QLineEdit;
class QWidget;

namespace korvel {

/// One setting of the configuration file, as people are asked for it.
struct Preference {
  enum class Kind { eText, eFolder, eFile, eWhole, eAmount, eChoice, eLines };

  const char* page;   ///< the tab's title, untranslated
  const char* key;    ///< in the file
  const char* label;  ///< untranslated, with "&" before the letter to press
  const char* usual;  ///< what holds where nothing is filled in, untranslated
  Kind kind = Kind::eText;
  std::vector<std::pair<const char*, const char*>> choices{};  ///< value and text
};

/// The settings that the configuration file may hold, one after another. What is filled in is
/// checked as the station would at its next start, and takes effect then; comments and other lines
/// of the file stay as they are.
class PreferencesDialog : public QDialog {
  Q_OBJECT

 public:
  /// The options must outlive it.
  PreferencesDialog(const Options& options, QWidget* parent);

  /// All settings, in the order of their tabs.
  static const std::vector<Preference>& all();

 Q_SIGNALS:
  void kept();

 private:
  /// A setting with what is filled in.
  struct Field {
    const Preference* preference = nullptr;
    QWidget* input = nullptr;
    QLabel* problem = nullptr;
    std::vector<std::string> before;  ///< the file's values; none where it has none
    std::vector<std::string> shown;   ///< how the input has them; what differs was changed here
  };

  QWidget* makePage(const QString& title);
  void addField(QFormLayout& form, const Preference& preference);
  QWidget* makeInput(const Preference& preference, const std::vector<std::string>& values);
  void addBrowsing(QLineEdit& edit, Preference::Kind kind);
  void check();
  [[nodiscard]] QString refusalOfAll() const;
  void keep();
  [[nodiscard]] std::vector<std::string> valuesInFile(const Preference& preference) const;

  const Options& options_;
  std::vector<ConfigLine> lines_;
  std::vector<Field> fields_;
  QLabel* problem_;
  QDialogButtonBox* buttons_;
};

}  // namespace korvel
