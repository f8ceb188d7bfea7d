#include "app/window/PreferencesDialog.h"

#include <QAction>
#include <QComboBox>
#include <QDialogButtonBox>
#include <QFileDialog>
#include <QFormLayout>
#include <QLabel>
#include <QLineEdit>
#include <QLocale>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QTabWidget>
#include <QVBoxLayout>
#include <cmath>

#include "app/window/Appearance.h"
#include "app/window/Dialogs.h"
#include "app/window/Texts.h"
#include "app/window/WindowLayout.h"
#include "station/base/Strings.h"
#include "station/net/Interfaces.h"

namespace korvel {

namespace {

using PreferenceKind = Preference::Kind;

constexpr const char* kStationPage = QT_TRANSLATE_NOOP("korvel::PreferencesDialog", "This station");
constexpr const char* kNetworkPage = QT_TRANSLATE_NOOP("korvel::PreferencesDialog", "Network");
constexpr const char* kOthersPage = QT_TRANSLATE_NOOP("korvel::PreferencesDialog", "Others");
constexpr const char* kFilesPage = QT_TRANSLATE_NOOP("korvel::PreferencesDialog", "Files");
constexpr const char* kNoneUsual = QT_TRANSLATE_NOOP("korvel::PreferencesDialog", "none");

/// What is filled in, as values of the file; none for what is left as it usually is.
std::vector<std::string> valuesOf(const QWidget& input) {
  if (const auto* choice = qobject_cast<const QComboBox*>(&input)) {
    const QVariant chosen = choice->currentData();
    if (!chosen.isValid()) return {};
    return {chosen.toString().toStdString()};
  }
  QStringList texts;
  if (const auto* lines = qobject_cast<const QPlainTextEdit*>(&input)) {
    texts = lines->toPlainText().split(QLatin1Char('\n'));
  } else {
    texts << qobject_cast<const QLineEdit*>(&input)->text();
  }
  std::vector<std::string> values;
  for (const QString& text : texts) {
    if (!text.trimmed().isEmpty()) values.push_back(text.trimmed().toStdString());
  }
  return values;
}

QString plainLabel(const QString& label) { return QString(label).remove(QLatin1Char('&')); }

/// Adds what is filled in to what a start would be given.
void give(GivenOptions& given, const Preference& preference,
          const std::vector<std::string>& values) {
  const std::string where = plainLabel(PreferencesDialog::tr(preference.label)).toStdString();
  const bool isOption = findOption(preference.key) != nullptr;
  for (const std::string& value : values) {
    given[isOption ? preference.key : "set"].push_back(
        {isOption ? value : std::string(preference.key) + "=" + value, where});
  }
}

/// As the station would refuse it at its next start; empty for what it takes.
QString refusalOf(const Preference& preference, const std::vector<std::string>& values) {
  GivenOptions given;
  give(given, preference, values);
  const auto checked = validateOptions(given, Asking::ePerson);
  return checked ? QString() : readableText(checked.error().message);
}

/// What the station would take, and not as it was meant.
QString doubtOf(const Preference& preference, const QString& value) {
  bool isNumber = false;
  const double number = QLocale::c().toDouble(value, &isNumber);
  const bool isWhole = number == std::floor(number);
  if (preference.kind == PreferenceKind::eAmount && (!isNumber || number < 0))
    return PreferencesDialog::tr("Write a number from 0 up, such as 20 or 0.5.");
  if (preference.kind == PreferenceKind::eWhole && (!isNumber || number < 0 || !isWhole))
    return PreferencesDialog::tr("Write a whole number.");
  const bool isPlace =
      preference.kind == PreferenceKind::eFolder || preference.kind == PreferenceKind::eFile;
  if (isPlace && !value.startsWith(QLatin1Char('/')))
    return PreferencesDialog::tr("Write the whole path, from the first \"/\" on.");
  if (QLatin1String(preference.key) != QLatin1String("accept_networks")) return {};
  for (const QString& word : value.split(QLatin1Char(','), Qt::SkipEmptyParts)) {
    if (!parseIpv4Network(word.trimmed().toStdString()))
      return PreferencesDialog::tr("\"%1\" is no network: write it like 192.168.1.0/24.")
          .arg(word.trimmed());
  }
  return {};
}

QString problemOf(const Preference& preference, const std::vector<std::string>& values) {
  for (const std::string& value : values) {
    const QString doubt = doubtOf(preference, readableText(value));
    if (!doubt.isEmpty()) return doubt;
  }
  return refusalOf(preference, values);
}

}  // namespace

const std::vector<Preference>& PreferencesDialog::all() {
  static const std::vector<Preference> kAll{
      {kStationPage, "projects", QT_TR_NOOP("Projects &folder"),
       QT_TR_NOOP("asked for at the start"), PreferenceKind::eFolder},
      {kStationPage, "user", QT_TR_NOOP("Your &name"), QT_TR_NOOP("the login name")},
      {kStationPage, "host", QT_TR_NOOP("Name of this &station"), QT_TR_NOOP("the machine's name")},
      {kStationPage, "machine", QT_TR_NOOP("N&umber of this station"),
       QT_TR_NOOP("made of the station's name"), PreferenceKind::eWhole},
      {kStationPage,
       "Administrator",
       QT_TR_NOOP("&Change what others own"),
       QT_TR_NOOP("not allowed"),
       PreferenceKind::eChoice,
       {{"1", QT_TR_NOOP("allowed")}}},
      {kStationPage, "history_versions", QT_TR_NOOP("&Versions kept of each edit, at least"), "50",
       PreferenceKind::eWhole},
      {kStationPage, "history_days", QT_TR_NOOP("&Days for which all versions are kept"), "90",
       PreferenceKind::eWhole},
      {kNetworkPage,
       "network-mode",
       QT_TR_NOOP("&Work with other stations"),
       QT_TR_NOOP("yes"),
       PreferenceKind::eChoice,
       {{"off", QT_TR_NOOP("no, alone")}}},
      {kNetworkPage, "port", QT_TR_NOOP("UDP &port, the same on all stations"), "27015"},
      {kNetworkPage, "send-to", QT_TR_NOOP("&Send to these addresses"),
       QT_TR_NOOP("all networks of this machine")},
      {kNetworkPage, "listen", QT_TR_NOOP("&Listen at this address"), "0.0.0.0"},
      {kNetworkPage, "accept_networks", QT_TR_NOOP("Listen to these &networks alone"),
       QT_TR_NOOP("all networks")},
      {kOthersPage, "accept_stations", QT_TR_NOOP("Listen to these &stations alone"),
       QT_TR_NOOP("all stations")},
      {kOthersPage,
       "remote_commands",
       QT_TR_NOOP("Others may have this &run"),
       QT_TR_NOOP("identify and refresh"),
       PreferenceKind::eChoice,
       {{"identify", "identify"}, {"refresh", "refresh"}, {"", kNoneUsual}}},
      {kOthersPage, "receive_limit", QT_TR_NOOP("&Messages taken a second"), "500",
       PreferenceKind::eAmount},
      {kOthersPage, "receive_limit_words", QT_TR_NOOP("of them &words to you or all"), "20",
       PreferenceKind::eAmount},
      {kOthersPage, "receive_limit_requests", QT_TR_NOOP("of them re&quests to run something"),
       "0.2", PreferenceKind::eAmount},
      {kFilesPage, "media", QT_TR_NOOP("&Media folders, each FOLDER=//server/share"), kNoneUsual,
       PreferenceKind::eLines},
      {kFilesPage, "log", QT_TR_NOOP("&Log file"), kNoneUsual, PreferenceKind::eFile},
      {kFilesPage,
       "log_incoming_net_messages",
       QT_TR_NOOP("&Received messages in the log"),
       QT_TR_NOOP("no"),
       PreferenceKind::eChoice,
       {{"1", QT_TR_NOOP("yes")}}},
      {kFilesPage, "audit", QT_TR_NOOP("Log of who did &what"), kNoneUsual, PreferenceKind::eFile},
      {kFilesPage, "events", QT_TR_NOOP("&Events for scripts"), kNoneUsual, PreferenceKind::eFile},
      {kFilesPage, "share-heard", QT_TR_NOOP("List of &heard stations, in the folder"), kNoneUsual,
       PreferenceKind::eFolder},
      {kFilesPage, "plugin", QT_TR_NOOP("&Plug-in"),
       QT_TR_NOOP("the one that came with the program"), PreferenceKind::eFile},
  };
  return kAll;
}

PreferencesDialog::PreferencesDialog(const Options& options, QWidget* parent)
    : QDialog(parent),
      options_(options),
      problem_(wrappedLabel("problem")),
      buttons_(new QDialogButtonBox(QDialogButtonBox::Save | QDialogButtonBox::Cancel)) {
  setObjectName(QStringLiteral("preferencesDialog"));
  setWindowTitle(tr("Preferences"));
  setAttribute(Qt::WA_DeleteOnClose);
  problem_->setProperty("role", "problem");
  auto read = readConfigFile(options.configFile);
  if (read) {
    lines_ = std::move(*read);
  } else if (read.error().code != ErrorCode::eNotFound) {
    problem_->setText(readableText(read.error().message));
  }
  problem_->setVisible(!problem_->text().isEmpty());
  auto* tabs = new QTabWidget;
  tabs->setDocumentMode(true);
  for (const char* page : {kStationPage, kNetworkPage, kOthersPage, kFilesPage}) {
    tabs->addTab(scrolled(makePage(QLatin1String(page))), tr(page));
  }
  auto* note =
      wrappedLabel("note", tr("What you change takes effect at the next start. It is kept in "
                              "%1; what else stands there stays.")
                               .arg(readableText(options.configFile)));
  note->setProperty("role", "quiet");
  auto* layout = new QVBoxLayout(this);
  layout->setContentsMargins(16, 12, 16, 12);
  layout->setSpacing(12);
  layout->addWidget(problem_);
  layout->addWidget(tabs, 1);
  layout->addWidget(note);
  layout->addWidget(buttons_);
  setMinimumSize(280, 180);
  resize(640, 460);
  connect(buttons_, &QDialogButtonBox::accepted, this, &PreferencesDialog::keep);
  connect(buttons_, &QDialogButtonBox::rejected, this, &QDialog::reject);
  check();
}

QWidget* PreferencesDialog::makePage(const QString& title) {
  auto* page = new QWidget;
  auto* form = new QFormLayout(page);
  form->setFieldGrowthPolicy(QFormLayout::AllNonFixedFieldsGrow);
  form->setRowWrapPolicy(QFormLayout::WrapLongRows);
  form->setContentsMargins(4, 14, 4, 4);
  for (const Preference& preference : all()) {
    if (title == QLatin1String(preference.page)) addField(*form, preference);
  }
  return page;
}

std::vector<std::string> PreferencesDialog::valuesInFile(const Preference& preference) const {
  const std::string key = preference.key;
  std::vector<std::string> values;
  for (const ConfigLine& line : lines_) {
    if (line.key == key || (key == "port" && line.key == kPortKey)) values.push_back(line.value);
  }
  if (values.size() < 2 || preference.kind == PreferenceKind::eLines) return values;
  return {key == "send-to" ? joined(values, ",") : values.back()};
}

QWidget* PreferencesDialog::makeInput(const Preference& preference,
                                      const std::vector<std::string>& values) {
  const QString usual = tr("%1 (usual)").arg(tr(preference.usual));
  const QString value = values.empty() ? QString() : readableText(values.back());
  if (preference.kind == PreferenceKind::eChoice) {
    auto* choice = new QComboBox;
    choice->addItem(usual);
    for (const auto& [word, text] : preference.choices)
      choice->addItem(tr(text), QString::fromLatin1(word));
    if (!values.empty() && choice->findData(value) < 0) choice->addItem(value, value);
    choice->setCurrentIndex(values.empty() ? 0 : choice->findData(value));
    connect(choice, &QComboBox::currentIndexChanged, this, &PreferencesDialog::check);
    return choice;
  }
  if (preference.kind == PreferenceKind::eLines) {
    auto* lines = new QPlainTextEdit;
    for (const std::string& each : values) lines->appendPlainText(readableText(each));
    lines->setTabChangesFocus(true);
    lines->setPlaceholderText(usual);
    lines->setFixedHeight(4 * lines->fontMetrics().lineSpacing() + 12);
    connect(lines, &QPlainTextEdit::textChanged, this, &PreferencesDialog::check);
    return lines;
  }
  auto* edit = new QLineEdit(value);
  edit->setPlaceholderText(usual);
  edit->setToolTip(plainTip(usual));  // has it whole where there is no room
  connect(edit, &QLineEdit::textChanged, this, &PreferencesDialog::check);
  if (preference.kind == PreferenceKind::eFolder || preference.kind == PreferenceKind::eFile)
    addBrowsing(*edit, preference.kind);
  return edit;
}

void PreferencesDialog::addBrowsing(QLineEdit& edit, Preference::Kind kind) {
  QAction* const browse =
      edit.addAction(icon(Glyph::eProject, colours().text), QLineEdit::TrailingPosition);
  browse->setToolTip(tr("Browse…"));
  connect(browse, &QAction::triggered, this, [this, &edit, kind] {
    auto* dialog = new QFileDialog(this, tr("Browse"), edit.text());
    dialog->setAttribute(Qt::WA_DeleteOnClose);
    const bool isFolder = kind == PreferenceKind::eFolder;
    dialog->setFileMode(isFolder ? QFileDialog::Directory : QFileDialog::AnyFile);
    if (isFolder) dialog->setOption(QFileDialog::ShowDirsOnly);
    connect(dialog, &QFileDialog::fileSelected, &edit, &QLineEdit::setText);
    dialog->open();
  });
}

void PreferencesDialog::addField(QFormLayout& form, const Preference& preference) {
  Field field{&preference, nullptr, wrappedLabel("problem"), valuesInFile(preference), {}};
  field.input = makeInput(preference, field.before);
  field.shown = valuesOf(*field.input);
  field.input->setObjectName(QString::fromLatin1(preference.key));
  form.addRow(tr(preference.label), field.input);
  const auto given = options_.given.find(preference.key);
  const bool isGiven = given != options_.given.end() && !given->second.empty() &&
                       given->second.back().where.starts_with("--");
  // What was answered in the first dialog, and is to be remembered, is in both.
  if (isGiven && field.before != std::vector{given->second.back().text}) {
    QLabel* const now = wrappedLabel("now", tr("At this start: %1, and not as in the file.")
                                                .arg(readableText(given->second.back().text)));
    now->setProperty("role", "quiet");
    form.addRow(QString(), now);
  }
  field.problem->setProperty("role", "problem");
  form.addRow(QString(), field.problem);
  fields_.push_back(std::move(field));
}

// What is in the file already was taken at this start: only what is changed can be wrong.
void PreferencesDialog::check() {
  bool isChanged = false;
  bool isRight = true;
  for (const Field& field : fields_) {
    const auto values = valuesOf(*field.input);
    const bool isOther = values != field.shown;
    const QString problem = isOther ? problemOf(*field.preference, values) : QString();
    field.problem->setText(problem);
    field.problem->setVisible(!problem.isEmpty());
    field.input->setAccessibleDescription(problem);
    isChanged |= isOther;
    isRight &= problem.isEmpty();
  }
  QPushButton* const save = buttons_->button(QDialogButtonBox::Save);
  save->setEnabled(isChanged && isRight && !options_.configFile.empty());
  save->setToolTip(isRight ? isChanged ? QString() : tr("Nothing is changed yet.")
                           : tr("Something filled in cannot be used."));
}

/// What only all of it together shows, such as one folder within another.
QString PreferencesDialog::refusalOfAll() const {
  GivenOptions given;
  for (const Field& field : fields_) give(given, *field.preference, valuesOf(*field.input));
  const auto checked = validateOptions(given, Asking::ePerson);
  return checked ? QString() : readableText(checked.error().message);
}

void PreferencesDialog::keep() {
  if (const QString refusal = refusalOfAll(); !refusal.isEmpty()) {
    problem_->setText(tr("Nothing was kept. %1").arg(refusal));
    return problem_->show();
  }
  ConfigChanges changes;
  for (const Field& field : fields_) {
    auto values = valuesOf(*field.input);
    if (values != field.shown) changes[field.preference->key] = std::move(values);
  }
  if (changes.contains("user") && !changes.contains("host") && hostFollowsUser(options_))
    changes["host"] = changes["user"];
  if (const auto kept = changeConfigFile(options_.configFile, changes); !kept) {
    problem_->setText(tr("Nothing was kept. %1").arg(readableText(kept.error().message)));
    problem_->show();
    return;
  }
  Q_EMIT this->kept();
  accept();
}

}  // namespace korvel
