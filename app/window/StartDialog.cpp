#include "app/window/StartDialog.h"

#include <signal.h>

#include <QCheckBox>
#include <QCoreApplication>
#include <QDialogButtonBox>
#include <QDir>
#include <QFileDialog>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QProcess>
#include <QPushButton>
#include <QStyle>
#include <QToolButton>
#include <QVBoxLayout>
#include <algorithm>
#include <functional>

#include "app/window/Dialogs.h"
#include "app/window/Texts.h"
#include "station/base/Json.h"

namespace korvel {

namespace {

/// Who types is not looked at letter by letter: a look makes files in the folder.
constexpr int kPauseMs = 600;

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
      problem_(wrappedLabel("problem", problem)),
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
  folder_->setToolTip(folder_->placeholderText());  // has it whole where there is no room
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
  layout->addWidget(wrappedLabel(
      "intro", tr("Projects are in one folder that all workstations share. Which is it "
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
  // What was wrong at the last try is being put right.
  connect(folder_, &QLineEdit::textEdited, problem_, &QLabel::hide);
  connect(user_, &QLineEdit::textEdited, problem_, &QLabel::hide);
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
  QLabel* const saying = wrappedLabel(name);
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

/// The first of what is amiss, as much as there is room for; what fails comes first. Of the network
/// only that: what could be better there is for administrators, who have kv-share doctor.
QString amiss(const std::vector<DoctorLine>& lines,
              const std::function<bool(const QString&)>& isOf) {
  constexpr qsizetype kMostShown = 1;
  QStringList failures;
  QStringList warnings;
  for (const DoctorLine& line : lines) {
    const bool isForOthers = !line.isFailure && line.group == QLatin1String("network");
    if (isOf(line.group) && !isForOthers) (line.isFailure ? failures : warnings) << line.text;
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

}  // namespace korvel
