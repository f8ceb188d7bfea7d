#include "app/window/Dialogs.h"

#include <QComboBox>
#include <QCompleter>
#include <QDialog>
#include <QDialogButtonBox>
#include <QFileDialog>
#include <QFileInfo>
#include <QFontDatabase>
#include <QFormLayout>
#include <QInputDialog>
#include <QLabel>
#include <QLineEdit>
#include <QListView>
#include <QListWidget>
#include <QLocale>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QToolButton>
#include <QTreeWidget>
#include <QVBoxLayout>
#include <algorithm>
#include <utility>

#include "app/window/Lists.h"
#include "app/window/Texts.h"

namespace korvel {

namespace {

constexpr int kMostRows = 8;  // visible rows; the list scrolls

QListWidget* listOf(const QStringList& things) {
  auto* list = new QListWidget;
  list->setObjectName(QStringLiteral("things"));
  list->setAccessibleName(Question::tr("What this is about"));
  list->setSelectionMode(QAbstractItemView::NoSelection);
  for (const QString& thing : things) list->addItem(oneLine(thing));
  const int rows = std::min<int>(kMostRows, static_cast<int>(things.size()));
  list->setFixedHeight(rows * list->sizeHintForRow(0) + 2 * list->frameWidth() + 4);
  return list;
}

}  // namespace

void giveWidth(QDialog& dialog, int least, int wanted) {
  const int needed = dialog.layout()->totalMinimumSize().width();
  dialog.setMinimumWidth(std::max(least, needed));
  dialog.resize(std::max(wanted, needed), dialog.sizeHint().height());
}

QLabel* wrappedLabel(const char* name, const QString& text) {
  auto* label = new QLabel(text);
  label->setObjectName(QLatin1String(name));
  label->setTextFormat(Qt::PlainText);
  label->setWordWrap(true);
  return label;
}

Question::Question(const QString& name, const QString& title, const QString& text,
                   const QStringList& things, QWidget* parent)
    : QDialog(parent), buttons_(new QDialogButtonBox(QDialogButtonBox::Cancel)) {
  setObjectName(name);
  setWindowTitle(plainTitle(title));
  setAttribute(Qt::WA_DeleteOnClose);
  auto* label = new QLabel(text);
  label->setObjectName(QStringLiteral("question"));
  label->setTextFormat(Qt::PlainText);
  label->setWordWrap(true);
  auto* layout = new QVBoxLayout(this);
  layout->setContentsMargins(16, 16, 16, 12);
  layout->setSpacing(12);
  layout->addWidget(label);
  if (!things.isEmpty()) {
    things_ = listOf(things);
    layout->addWidget(things_);
  }
  layout->addWidget(buttons_);
  // Return does no harm, unless a usual answer is added. The focus shows what it does.
  buttons_->button(QDialogButtonBox::Cancel)->setDefault(true);
  buttons_->button(QDialogButtonBox::Cancel)->setFocus();
  connect(buttons_, &QDialogButtonBox::rejected, this, &QDialog::reject);
  connect(this, &QDialog::finished, parent, [this] {
    // After the dialog has closed: the next step may open another one.
    const std::function<void()> next = chosen_ ? chosen_ : otherwise_;
    if (next) next();
  });
}

QPushButton* Question::addAnswer(const QString& text, const std::function<void()>& run) {
  QPushButton* const button = buttons_->addButton(text, QDialogButtonBox::ActionRole);
  button->setAutoDefault(false);
  connect(button, &QPushButton::clicked, this, [this, run] {
    chosen_ = run;
    accept();
  });
  return button;
}

void Question::answer(const QString& text, const std::function<void()>& run) {
  addAnswer(text, run);
}

void Question::usualAnswer(const QString& text, const std::function<void()>& run) {
  QPushButton* const button = addAnswer(text, run);
  button->setDefault(true);
  button->setFocus();
}

void Question::setThing(int at, const QString& text) {
  if (things_ && at < things_->count()) things_->item(at)->setText(oneLine(text));
}

// Returns at once: a nested event loop would let the station's events in while the caller waits.
void Question::ask() {
  giveWidth(*this, 260, 440);
  open();
}

namespace {

QPlainTextEdit& showInDialog(QWidget& parent, const QString& title) {
  auto* dialog = new QDialog(&parent);
  dialog->setAttribute(Qt::WA_DeleteOnClose);
  dialog->setObjectName(QStringLiteral("answer"));
  dialog->setWindowTitle(plainTitle(title));
  auto* shown = new QPlainTextEdit;
  shown->setReadOnly(true);
  shown->setTabChangesFocus(true);
  shown->setAccessibleName(dialog->windowTitle());
  auto* layout = new QVBoxLayout(dialog);
  layout->setContentsMargins(0, 0, 0, 0);
  layout->addWidget(shown);
  dialog->resize(720, 420);
  dialog->show();
  return *shown;
}

}  // namespace

void showTable(QWidget& parent, const QString& title, const QString& text) {
  QPlainTextEdit& shown = showInDialog(parent, title);
  shown.setFont(QFontDatabase::systemFont(QFontDatabase::FixedFont));
  shown.setLineWrapMode(QPlainTextEdit::NoWrap);
  shown.setPlainText(text);
}

void showWholeText(QWidget& parent, const QString& title, const QString& text) {
  showLongText(showInDialog(parent, title), text);
}

void askLine(QWidget& parent, const std::function<void(const QString& line)>& take) {
  auto* dialog = new QInputDialog(&parent);
  dialog->setAttribute(Qt::WA_DeleteOnClose);
  dialog->setObjectName(QStringLiteral("commandDialog"));
  dialog->setWindowTitle(Question::tr("Run a command"));
  dialog->setLabelText(Question::tr("Command:"));
  dialog->resize(460, dialog->sizeHint().height());
  QObject::connect(dialog, &QInputDialog::textValueSelected, &parent, [take](const QString& line) {
    if (!line.trimmed().isEmpty()) take(line);
  });
  dialog->show();
}

namespace {

using Kind = ActionField::Kind;

QString titleOf(const ActionSpec& action) { return withoutMarks(actionText(action.text)); }

/// Where a field keeps the files that were chosen together; what is typed is one file.
constexpr const char* kFiles = "files";

/// Shows files that were chosen together, by their names where there are several.
void showFiles(QLineEdit& field, const QStringList& files) {
  QStringList names;
  for (const QString& file : files) names << QFileInfo(file).fileName();
  field.setText(files.size() == 1 ? files.front() : listed(names));
  field.setToolTip(plainTip(files.join(QLatin1Char('\n'))));
  field.setProperty(kFiles, files.size() == 1 ? QStringList() : files);
}

QString valueOf(const QWidget* input) {
  if (const auto* edit = qobject_cast<const QLineEdit*>(input)) {
    const QStringList files = edit->property(kFiles).toStringList();
    return files.isEmpty() ? edit->text() : files.join(QLatin1Char('\n'));
  }
  const auto* choice = qobject_cast<const QComboBox*>(input);
  if (!choice->isEditable()) return choice->currentData().toString();
  // A typed text that is an entry stands for its value; any other text is the value.
  const int index = choice->findText(choice->currentText());
  return index < 0 ? choice->currentText() : choice->itemData(index).toString();
}

}  // namespace

ActionDialog::ActionDialog(const ActionSpec& action, const std::vector<FieldContent>& contents,
                           QWidget* parent)
    : QDialog(parent),
      buttons_(new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Cancel)) {
  setObjectName(QStringLiteral("actionDialog"));
  setWindowTitle(titleOf(action));
  setAttribute(Qt::WA_DeleteOnClose);
  auto* form = new QFormLayout;
  form->setFieldGrowthPolicy(QFormLayout::AllNonFixedFieldsGrow);
  form->setRowWrapPolicy(QFormLayout::WrapLongRows);
  for (std::size_t i = 0; i < action.fields.size(); ++i) {
    form->addRow(actionText(action.fields[i].label), makeField(action.fields[i], contents[i]));
  }
  buttons_->button(QDialogButtonBox::Ok)->setText(titleOf(action));
  auto* layout = new QVBoxLayout(this);
  layout->setContentsMargins(16, 16, 16, 12);
  layout->setSpacing(14);
  layout->addLayout(form);
  layout->addWidget(buttons_);
  giveWidth(*this, 240, 420);
  connect(buttons_, &QDialogButtonBox::rejected, this, &QDialog::reject);
  connect(buttons_, &QDialogButtonBox::accepted, this, [this] {
    Q_EMIT filled(values());
    accept();
  });
  check();
}

void ActionDialog::correct(const QStringList& values, const QString& why) {
  for (int i = 0; i < std::min<int>(values.size(), static_cast<int>(inputs_.size())); ++i) {
    QWidget* const input = inputs_[static_cast<std::size_t>(i)];
    if (auto* const edit = qobject_cast<QLineEdit*>(input)) {
      edit->setText(values[i]);
    } else if (auto* const choice = qobject_cast<QComboBox*>(input)) {
      const int known = choice->findData(values[i]);
      choice->setCurrentIndex(known);
      if (known < 0) choice->setEditText(values[i]);
    }
  }
  auto* const reason = new QLabel(why);
  reason->setObjectName(QStringLiteral("reason"));
  reason->setTextFormat(Qt::PlainText);
  reason->setWordWrap(true);
  qobject_cast<QVBoxLayout*>(layout())->insertWidget(0, reason);
  resize(width(), sizeHint().height());
}

QWidget* ActionDialog::makeField(const ActionField& field, const FieldContent& content) {
  const bool isFile = field.kind == Kind::eOpenFile || field.kind == Kind::eImportFiles ||
                      field.kind == Kind::eSaveFile;
  if (field.kind != Kind::eText && !isFile) return makeChoice(field, content);
  auto* edit = new QLineEdit(content.initial);
  // Within a row of its own the label of the form does not name it.
  edit->setAccessibleName(actionText(field.label));
  edit->selectAll();
  connect(edit, &QLineEdit::textChanged, this, &ActionDialog::check);
  inputs_.push_back(edit);
  connect(edit, &QLineEdit::textEdited, edit, [edit] { edit->setProperty(kFiles, QVariant()); });
  return isFile ? makeFileField(field, edit) : edit;
}

QWidget* ActionDialog::makeFileField(const ActionField& field, QLineEdit* edit) {
  auto* row = new QWidget;
  auto* browse = new QToolButton;
  browse->setText(QStringLiteral("…"));
  browse->setProperty("role", "button");
  browse->setAccessibleName(tr("Choose a file"));
  auto* layout = new QHBoxLayout(row);
  layout->setContentsMargins(0, 0, 0, 0);
  layout->addWidget(edit, 1);
  layout->addWidget(browse);
  row->setFocusProxy(edit);
  connect(browse, &QToolButton::clicked, this,
          [this, edit, kind = field.kind] { browseFor(kind, *edit); });
  return row;
}

void ActionDialog::browseFor(Kind kind, QLineEdit& edit) {
  if (kind == Kind::eImportFiles) {
    const QStringList files = QFileDialog::getOpenFileNames(
        this, windowTitle(), edit.text(), tr("OpenTimelineIO (*.otio);;All files (*)"));
    if (!files.isEmpty()) showFiles(edit, files);
    return;
  }
  const QString file =
      kind == Kind::eSaveFile
          ? QFileDialog::getSaveFileName(this, windowTitle(), edit.text(), {}, nullptr,
                                         QFileDialog::DontConfirmOverwrite)
          : QFileDialog::getOpenFileName(this, windowTitle(), edit.text());
  if (!file.isEmpty()) edit.setText(file);
}

// A field with choices; only a user's name may be another one. Qt's inline completion would turn a
// typed name into a longer one that begins alike, so users are completed in a list, and the field
// starts empty.
QWidget* ActionDialog::makeChoice(const ActionField& field, const FieldContent& content) {
  auto* choice = new QComboBox;
  choice->setEditable(field.kind == Kind::eNewOwner || field.kind == Kind::eUser);
  choice->setInsertPolicy(QComboBox::NoInsert);
  choice->setSizeAdjustPolicy(QComboBox::AdjustToMinimumContentsLengthWithIcon);
  auto* view = new QListView;
  view->setUniformItemSizes(true);
  choice->setView(view);
  for (const FieldChoice& each : content.choices) {
    choice->addItem(each.shown, each.word);
    if (each.word == content.initial) choice->setCurrentIndex(choice->count() - 1);
  }
  if (choice->isEditable()) {
    choice->setCurrentIndex(-1);
    choice->clearEditText();
    choice->lineEdit()->setPlaceholderText(tr("The exact name"));
    choice->lineEdit()->setAccessibleName(actionText(field.label));
    choice->completer()->setCompletionMode(QCompleter::PopupCompletion);
    choice->completer()->setCaseSensitivity(Qt::CaseInsensitive);
  }
  connect(choice, &QComboBox::currentTextChanged, this, &ActionDialog::check);
  inputs_.push_back(choice);
  return choice;
}

QStringList ActionDialog::values() const {
  QStringList values;
  for (const QWidget* input : inputs_) values.append(valueOf(input));
  return values;
}

void ActionDialog::check() {
  bool isWhole = true;
  for (const QWidget* input : inputs_) isWhole = isWhole && !valueOf(input).isEmpty();
  QPushButton* const ok = buttons_->button(QDialogButtonBox::Ok);
  ok->setEnabled(isWhole);
  ok->setToolTip(isWhole ? QString() : tr("Fill in every field first."));
}

namespace {

enum TrashColumn { eTrashName, eTrashKind, eTrashOwner, eTrashTime, eTrashBy, eTrashSize };

constexpr QSize kTrashSize{720, 360};

/// The kind of what was deleted, which the station tells in English.
QString trashKind(const QString& kind) {
  constexpr std::array<const char*, 6> kKinds{QT_TRANSLATE_NOOP("korvel::TrashDialog", "edit"),
                                              QT_TRANSLATE_NOOP("korvel::TrashDialog", "log"),
                                              QT_TRANSLATE_NOOP("korvel::TrashDialog", "bin"),
                                              QT_TRANSLATE_NOOP("korvel::TrashDialog", "rack"),
                                              QT_TRANSLATE_NOOP("korvel::TrashDialog", "filter"),
                                              QT_TRANSLATE_NOOP("korvel::TrashDialog", "media")};
  const auto found =
      std::ranges::find(kKinds, kind, [](auto* each) { return QLatin1String(each); });
  return found == kKinds.end() ? kind : TrashDialog::tr(*found);
}

QTreeWidgetItem* trashItem(const TrashRow& row) {
  const QString name = oneLine(row.name.isEmpty() ? row.key : row.name);
  auto* item =
      new QTreeWidgetItem({name, trashKind(row.kind), oneLine(row.owner), shownTime(row.deleted),
                           oneLine(row.by), QLocale().formattedDataSize(row.size, 0)});
  item->setData(eTrashName, Qt::UserRole, row.key);
  item->setToolTip(eTrashName, plainTip(row.problem.isEmpty() ? row.name : row.problem));
  item->setTextAlignment(eTrashSize, Qt::AlignRight | Qt::AlignVCenter);
  return item;
}

}  // namespace

TrashDialog::TrashDialog(QWidget* parent)
    : QDialog(parent), list_(new QTreeWidget), hint_(new QLabel) {
  setObjectName(QStringLiteral("trashDialog"));
  setWindowTitle(tr("Trash of the project"));
  setAttribute(Qt::WA_DeleteOnClose);
  list_->setObjectName(QStringLiteral("trash"));
  list_->setAccessibleName(tr("Deleted objects"));
  new ArrowKeys(*list_);
  list_->setHeaderLabels(
      {tr("Name"), tr("Kind"), tr("Owner"), tr("Deleted"), tr("By"), tr("Size")});
  list_->setRootIsDecorated(false);
  list_->setUniformRowHeights(true);
  list_->setAllColumnsShowFocus(true);
  list_->setTextElideMode(Qt::ElideMiddle);
  list_->setSelectionMode(QAbstractItemView::ExtendedSelection);
  setColumnWidths(*list_, {200, 50, 90, widthOfTimes(*list_), 90, 70});
  hint_->setObjectName(QStringLiteral("trashHint"));
  hint_->setProperty("role", "quiet");
  hint_->setWordWrap(true);
  hint_->setTextFormat(Qt::PlainText);
  auto* buttons = new QDialogButtonBox(QDialogButtonBox::Close);
  restore_ = buttons->addButton(tr("&Restore"), QDialogButtonBox::ActionRole);
  empty_ = buttons->addButton(tr("&Empty the trash…"), QDialogButtonBox::ActionRole);
  auto* layout = new QVBoxLayout(this);
  layout->setContentsMargins(12, 12, 12, 12);
  layout->addWidget(hint_);
  layout->addWidget(list_, 1);
  layout->addWidget(buttons);
  // Not larger than the window, which may be on a small screen.
  const QSize room = parent ? parent->window()->size() : kTrashSize;
  resize(kTrashSize.boundedTo(room));
  connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
  connect(list_, &QTreeWidget::itemSelectionChanged, this, &TrashDialog::enable);
  connect(restore_, &QPushButton::clicked, this, [this] { Q_EMIT restoreWanted(chosen()); });
  connect(empty_, &QPushButton::clicked, this, [this] { Q_EMIT emptyWanted(rows_.size()); });
  enable();
}

void TrashDialog::take(const TrashPtr& trash) {
  hint_->setText(!trash->problem.isEmpty() ? trash->problem
                 : trash->rows.empty()
                     ? tr("The trash is empty.")
                     : tr("What is deleted stays here until the trash is emptied. "
                          "Everybody in the project may take it back."));
  if (rows_ != trash->rows) {
    rows_ = trash->rows;
    fill();
  }
  enable();
}

void TrashDialog::fill() {
  // By key: a row that stays keeps its selection.
  const QStringList before = chosen();
  list_->clear();
  for (const TrashRow& row : rows_) {
    QTreeWidgetItem* const item = trashItem(row);
    list_->addTopLevelItem(item);
    item->setSelected(before.contains(row.key));
  }
  // What was deleted last is most likely what is wanted back.
  const bool isFirst = !rows_.empty() && !std::exchange(isFilled_, true);
  if (isFirst) list_->setCurrentItem(list_->topLevelItem(0));
}

QStringList TrashDialog::chosen() const {
  QStringList keys;
  for (const QTreeWidgetItem* item : list_->selectedItems()) {
    keys << item->data(eTrashName, Qt::UserRole).toString();
  }
  return keys;
}

void TrashDialog::enable() {
  restore_->setEnabled(!list_->selectedItems().isEmpty());
  restore_->setToolTip(restore_->isEnabled() ? QString() : tr("Choose what is to come back."));
  empty_->setEnabled(!rows_.empty());
  empty_->setToolTip(rows_.empty() ? tr("It is empty already.") : QString());
}

}  // namespace korvel
