#include "app/window/SettingsDialogs.h"

#include <signal.h>

#include <QAction>
#include <QCheckBox>
#include <QComboBox>
#include <QCoreApplication>
#include <QDialogButtonBox>
#include <QDir>
#include <QFileDialog>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QLocale>
#include <QPlainTextEdit>
#include <QProcess>
#include <QPushButton>
#include <QStyle>
#include <QTabWidget>
#include <QToolButton>
#include <QVBoxLayout>
#include <algorithm>
#include <cmath>
#include <functional>

#include "app/base/OptionTable.h"
#include "app/window/Appearance.h"
#include "app/window/Texts.h"
#include "app/window/WindowLayout.h"
#include "station/base/Json.h"
#include "station/base/Strings.h"
#include "station/net/Interfaces.h"

namespace korvel {

namespace {

/// Who types is not looked at letter by letter: a look makes files in the folder.
constexpr int kPauseMs = 600;

QLabel* wrapped(const char* name, const QString& text = {}) {
  auto* label = new QLabel(text);
  label->setObjectName(QLatin1String(name));
  label->setTextFormat(Qt::PlainText);
  label->setWordWrap(true);
  return label;
}

QString sentence(QString text) {
  if (!text.isEmpty()) text.front() = text.front().toUpper();
  return text.endsWith(QLatin1Char('.')) ? text : text + QLatin1Char('.');
}

std::vector<DoctorLine> linesOf(const JsonValue& report) {
  std::vector<DoctorLine> lines;
  for (const JsonValue& check : report["checks"].elements()) {
    const std::string verdict = check["verdict"].asString();
    if (verdict == "pass") continue;
    QString text = sentence(readableText(check["text"].asString()));
    const QString fix = readableText(check["fix"].asString());
    if (!fix.isEmpty()) text = DoctorLook::tr("%1 What helps: %2.").arg(text, fix);
    lines.push_back({readableText(check["group"].asString()), text, verdict == "fail"});
  }
  return lines;
}

}  // namespace

DoctorLook::DoctorLook(const Options& options, QObject* parent)
    : QObject(parent), options_(options) {
  pause_.setSingleShot(true);
  pause_.setInterval(kPauseMs);
  connect(&pause_, &QTimer::timeout, this, &DoctorLook::start);
}

// A look at a share that hangs ends when the share lets it, without its asker.
DoctorLook::~DoctorLook() {
  if (!process_) return;
  process_->disconnect(this);
  connect(process_, &QProcess::finished, process_, &QObject::deleteLater);
  process_->setParent(QCoreApplication::instance());
  process_->kill();
}

void DoctorLook::ask(const QString& folder, const QString& user) {
  wanted_ = {folder, user};
  pause_.start();
}

void DoctorLook::forget() {
  wanted_.clear();
  pause_.stop();
}

void DoctorLook::start() {
  if (process_) return;  // end() goes on with what is wanted then
  running_ = wanted_;
  process_ = new QProcess(this);
  // This program takes signals on a thread of its own and blocks them everywhere else.
  process_->setChildProcessModifier([] {
    sigset_t none;
    ::sigemptyset(&none);
    ::sigprocmask(SIG_SETMASK, &none, nullptr);
  });
  connect(process_, &QProcess::finished, this, &DoctorLook::end);
  connect(process_, &QProcess::errorOccurred, this, [this](QProcess::ProcessError error) {
    if (error == QProcess::FailedToStart) end();
  });
  QStringList words{QStringLiteral("doctor"),
                    running_[0],
                    QStringLiteral("--user"),
                    running_[1],
                    QStringLiteral("--host"),
                    hostFollowsUser(options_) ? running_[1] : readableText(options_.station.host),
                    QStringLiteral("--wait"),
                    QStringLiteral("0"),
                    QStringLiteral("--json")};
  const auto port = options_.station.config.find(kPortKey);
  if (port != options_.station.config.end())
    words << QStringLiteral("--port") << readableText(port->second);
  process_->start(QCoreApplication::applicationDirPath() + QStringLiteral("/kv-share"), words);
}

void DoctorLook::end() {
  QProcess* const ended = std::exchange(process_, nullptr);
  if (!ended) return;
  ended->deleteLater();
  if (wanted_.isEmpty()) return;
  if (running_ != wanted_) return pause_.start();
  const auto report = parseJson(ended->readAllStandardOutput().toStdString());
  if (report) {
    Q_EMIT told(linesOf(*report), {});
  } else {
    Q_EMIT told({}, tr("It could not be looked at: kv-share gives no answer."));
  }
}

StartDialog::StartDialog(Options& options, const QString& problem)
    : options_(options),
      problem_(wrapped("problem", problem)),
      folder_(new QLineEdit(readableText(options.station.projectsDirectory))),
      user_(new QLineEdit),
      remember_(new QCheckBox(tr("&Remember both for the next start"))),
      buttons_(new QDialogButtonBox),
      look_(options, this) {
  setObjectName(QStringLiteral("startDialog"));
  setWindowTitle(tr("Project Share"));
  problem_->setProperty("role", "problem");
  problem_->setVisible(!problem.isEmpty());
  folder_->setObjectName(QStringLiteral("folder"));
  folder_->setPlaceholderText(tr("such as /mnt/projects"));
  user_->setObjectName(QStringLiteral("user"));
  user_->setText(readableText(options.station.user).toUpper());
  remember_->setObjectName(QStringLiteral("remember"));
  remember_->setChecked(!options.configFile.empty());
  remember_->setEnabled(!options.configFile.empty());
  remember_->setToolTip(plainTip(readableText(options.configFile)));
  auto* browse = new QToolButton;
  browse->setObjectName(QStringLiteral("browse"));
  browse->setText(tr("&Browse…"));
  browse->setProperty("role", "button");
  auto* place = new QHBoxLayout;
  place->addWidget(folder_, 1);
  place->addWidget(browse);
  auto* form = new QFormLayout;
  form->setFieldGrowthPolicy(QFormLayout::AllNonFixedFieldsGrow);
  form->setRowWrapPolicy(QFormLayout::WrapLongRows);
  form->addRow(tr("Projects &folder"), place);
  qobject_cast<QLabel*>(form->labelForField(place))->setBuddy(folder_);
  folderSaying_ = addSaying(*form, "folderSaying");
  form->addRow(tr("Your &name"), user_);
  userSaying_ = addSaying(*form, "userSaying");
  form->addRow(QString(), remember_);
  QPushButton* const start = buttons_->addButton(tr("&Start"), QDialogButtonBox::AcceptRole);
  start->setObjectName(QStringLiteral("start"));
  start->setDefault(true);
  buttons_->addButton(tr("&Quit"), QDialogButtonBox::RejectRole)->setAutoDefault(false);
  auto* layout = new QVBoxLayout(this);
  layout->setContentsMargins(20, 18, 20, 14);
  layout->setSpacing(14);
  layout->addWidget(problem_);
  layout->addWidget(
      wrapped("intro", tr("Projects are in one folder that all workstations share. Which is it "
                          "here, and by which name do your colleagues know you?")));
  layout->addLayout(form);
  layout->addStretch(1);
  layout->addWidget(buttons_);
  setMinimumWidth(300);
  resize(600, 380);
  connect(browse, &QToolButton::clicked, this, &StartDialog::browse);
  connect(folder_, &QLineEdit::textChanged, this, &StartDialog::check);
  // Others address a station by its name in capitals: messages to any other do not arrive.
  connect(user_, &QLineEdit::textEdited, this, [this](const QString& text) {
    const int at = user_->cursorPosition();
    user_->setText(text.toUpper());
    user_->setCursorPosition(at);
  });
  connect(user_, &QLineEdit::textChanged, this, &StartDialog::check);
  connect(&look_, &DoctorLook::told, this, &StartDialog::takeLook);
  connect(buttons_, &QDialogButtonBox::accepted, this, &StartDialog::start);
  connect(buttons_, &QDialogButtonBox::rejected, this, &QDialog::reject);
  check();
}

namespace {

enum class Tone { eNote, eProblem };

void say(QLabel& label, Tone tone, const QString& text) {
  const QString role = tone == Tone::eProblem ? QStringLiteral("problem") : QStringLiteral("quiet");
  label.setText(text);
  if (label.property("role").toString() == role) return;
  label.setProperty("role", role);
  label.style()->polish(&label);  // the colour goes by it
}

}  // namespace

QLabel* StartDialog::addSaying(QFormLayout& form, const char* name) {
  constexpr int kLines = 3;  // as much room from the start: nothing moves under the hand
  QLabel* const saying = wrapped(name);
  saying->setProperty("role", "quiet");
  saying->setAlignment(Qt::AlignTop | Qt::AlignLeft);
  saying->setMinimumHeight(kLines * saying->fontMetrics().lineSpacing());
  form.addRow(QString(), saying);
  return saying;
}

QString StartDialog::folder() const {
  QString typed = folder_->text().trimmed();
  if (typed == QLatin1String("~") || typed.startsWith(QLatin1String("~/")))
    typed.replace(0, 1, QDir::homePath());
  return typed;
}

void StartDialog::browse() {
  auto* dialog = new QFileDialog(this, tr("The folder of the projects"),
                                 folder().isEmpty() ? QDir::homePath() : folder());
  dialog->setAttribute(Qt::WA_DeleteOnClose);
  dialog->setFileMode(QFileDialog::Directory);
  dialog->setOption(QFileDialog::ShowDirsOnly);
  connect(dialog, &QFileDialog::fileSelected, folder_, &QLineEdit::setText);
  dialog->open();
}

/// As the station would refuse it.
QString StartDialog::whyNotName() const {
  GivenOptions given;
  given["user"] = {{user_->text().toStdString(), tr("Your name").toStdString()}};
  const auto checked = validateOptions(given, Asking::ePerson);
  return checked ? QString() : readableText(checked.error().message);
}

void StartDialog::check() {
  const QString name = whyNotName();
  const bool hasFolder = folder().startsWith(QLatin1Char('/'));
  buttons_->findChild<QPushButton*>(QStringLiteral("start"))
      ->setEnabled(hasFolder && name.isEmpty());
  say(*userSaying_, Tone::eProblem, name);
  if (!hasFolder || !name.isEmpty()) look_.forget();
  if (!hasFolder) {
    const QString why = tr("Write the whole path, from the first \"/\" on.");
    return say(*folderSaying_, Tone::eProblem, folder().isEmpty() ? QString() : why);
  }
  say(*folderSaying_, Tone::eNote, name.isEmpty() ? tr("Looking at it…") : QString());
  if (name.isEmpty()) look_.ask(folder(), user_->text());
}

namespace {

/// The first of what is amiss, as much as there is room for; what fails comes first.
QString amiss(const std::vector<DoctorLine>& lines,
              const std::function<bool(const QString&)>& isOf) {
  constexpr qsizetype kMostShown = 1;
  QStringList failures;
  QStringList warnings;
  for (const DoctorLine& line : lines) {
    if (isOf(line.group)) (line.isFailure ? failures : warnings) << line.text;
  }
  const QStringList shown = (failures + warnings).mid(0, kMostShown);
  return shown.join(QLatin1Char('\n'));
}

bool hasFailure(const std::vector<DoctorLine>& lines, const QString& group) {
  return std::ranges::any_of(
      lines, [&group](const DoctorLine& line) { return line.isFailure && line.group == group; });
}

}  // namespace

void StartDialog::takeLook(const std::vector<DoctorLine>& lines, const QString& problem) {
  if (!problem.isEmpty()) return say(*folderSaying_, Tone::eProblem, problem);
  const auto isOfUser = [](const QString& group) { return group == QLatin1String("station"); };
  const auto isOfFolder = [](const QString& group) { return group != QLatin1String("station"); };
  const QString folder = amiss(lines, isOfFolder);
  const QString user = amiss(lines, isOfUser);
  if (folder.isEmpty()) {
    say(*folderSaying_, Tone::eNote, tr("It works: what one station holds, no other gets."));
  } else if (hasFailure(lines, QStringLiteral("share"))) {
    say(*folderSaying_, Tone::eProblem, tr("It does not work. %1").arg(folder));
  } else {
    say(*folderSaying_, Tone::eNote, tr("It works, but: %1").arg(folder));
  }
  // Of a folder that cannot be read nothing is known of the name either.
  const bool isUnknown = user.isEmpty() && hasFailure(lines, QStringLiteral("share"));
  const bool isWrong = hasFailure(lines, QStringLiteral("station"));
  say(*userSaying_, isWrong ? Tone::eProblem : Tone::eNote,
      isUnknown        ? QString()
      : user.isEmpty() ? tr("It works: messages to you arrive.")
                       : user);
}

void StartDialog::tell(const QString& problem) {
  problem_->setText(problem);
  problem_->show();
}

void StartDialog::start() {
  const std::string folder = this->folder().toStdString();
  const std::string user = user_->text().toStdString();
  auto answered = withAnswers(options_, folder, user);
  if (!answered) return tell(readableText(answered.error().message));
  if (remember_->isChecked()) {
    ConfigChanges changes{{"projects", {folder}}, {"user", {user}}};
    if (hostFollowsUser(options_)) changes["host"] = {user};
    if (const auto kept = changeConfigFile(options_.configFile, changes); !kept) {
      remember_->setChecked(false);
      return tell(tr("It cannot be remembered: %1").arg(readableText(kept.error().message)));
    }
  }
  options_ = *answered;
  accept();
}

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
      problem_(wrapped("problem")),
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
  auto* note = wrapped("note", tr("What you change takes effect at the next start. It is kept in "
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
  Field field{&preference, nullptr, wrapped("problem"), valuesInFile(preference), {}};
  field.input = makeInput(preference, field.before);
  field.shown = valuesOf(*field.input);
  field.input->setObjectName(QString::fromLatin1(preference.key));
  form.addRow(tr(preference.label), field.input);
  const auto given = options_.given.find(preference.key);
  if (given != options_.given.end() && !given->second.empty() &&
      given->second.back().where.starts_with("--")) {
    QLabel* const now = wrapped("now", tr("At this start: %1, given on the command line.")
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
