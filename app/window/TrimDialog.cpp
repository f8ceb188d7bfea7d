#include <QComboBox>
#include <QDialog>
#include <QDialogButtonBox>
#include <QFormLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QVBoxLayout>
#include <algorithm>

#include "app/window/Dialogs.h"
#include "app/window/Texts.h"

namespace korvel {

namespace {

/// "track 1, clip 2" of "0/1", "track 1, clip 2 in 3" of "0/1/2": people count from one.
QString placeText(const QString& path) {
  QStringList numbers;
  for (const QString& part : path.split(QLatin1Char('/'))) {
    numbers << QString::number(part.toInt() + 1);
  }
  const QString track = numbers.takeFirst();
  QString clip = numbers.takeFirst();
  for (const QString& each : numbers) {
    clip = TrimDialog::tr("%1 in %2", "places of nested clips").arg(clip, each);
  }
  return TrimDialog::tr("track %1, clip %2").arg(track, clip);
}

const TimelineItem* clipAt(const Timeline& timeline, const QString& path) {
  for (const TimelineTrack& track : timeline.tracks) {
    const auto found = std::ranges::find(track.items, path, &TimelineItem::path);
    if (found != track.items.end()) return &*found;
  }
  return nullptr;
}

void offerClips(QComboBox& choice, const Timeline& timeline, const QString& path) {
  for (const TimelineTrack& track : timeline.tracks) {
    for (const TimelineItem& item : track.items) {
      if (!item.canBeTrimmed) continue;
      choice.addItem(QStringLiteral("%1  (%2)").arg(oneLine(item.name), placeText(item.path)),
                     item.path);
      if (item.path == path) choice.setCurrentIndex(choice.count() - 1);
    }
  }
}

}  // namespace

TrimDialog::TrimDialog(const TimelinePtr& timeline, const QString& path, QWidget* parent)
    : QDialog(parent),
      timeline_(timeline),
      clips_(new QComboBox),
      material_(wrappedLabel("material")),
      reason_(wrappedLabel("reason")),
      buttons_(new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Cancel)) {
  setObjectName(QStringLiteral("trimDialog"));
  setWindowTitle(tr("Trim a clip"));
  setAttribute(Qt::WA_DeleteOnClose);
  clips_->setObjectName(QStringLiteral("clips"));
  clips_->setSizeAdjustPolicy(QComboBox::AdjustToMinimumContentsLengthWithIcon);
  offerClips(*clips_, *timeline, path);
  auto* form = new QFormLayout;
  form->setFieldGrowthPolicy(QFormLayout::AllNonFixedFieldsGrow);
  form->addRow(tr("&Clip"), clips_);
  addInput(*form, eIn, tr("&In"));
  addInput(*form, eOut, tr("&Out"));
  addInput(*form, eLength, tr("&Length"));
  form->addRow(tr("Material"), material_);
  buttons_->button(QDialogButtonBox::Ok)->setText(tr("Trim"));
  reason_->hide();
  auto* layout = new QVBoxLayout(this);
  layout->setContentsMargins(16, 16, 16, 12);
  layout->setSpacing(14);
  layout->addWidget(reason_);
  layout->addLayout(form);
  layout->addWidget(buttons_);
  giveWidth(*this, 280, 440);
  connect(clips_, &QComboBox::currentIndexChanged, this, &TrimDialog::chooseClip);
  connect(buttons_, &QDialogButtonBox::rejected, this, &QDialog::reject);
  connect(buttons_, &QDialogButtonBox::accepted, this, [this] {
    Q_EMIT filled(*trim_);
    accept();
  });
  chooseClip(clips_->currentIndex());
  inputs_[eIn].text->setFocus();
  inputs_[eIn].text->selectAll();
}

// An input that loses the focus as it is destroyed would tell a dialog that is no more.
TrimDialog::~TrimDialog() {
  for (const Input& each : inputs_) each.text->disconnect(this);
}

void TrimDialog::addInput(QFormLayout& form, Field field, const QString& label) {
  static constexpr std::array<const char*, 3> kNames{"in", "out", "length"};
  Input& input = inputs_[field];
  input.text = new QLineEdit;
  input.text->setObjectName(QLatin1String(kNames[field]));
  input.text->setToolTip(plainTip(
      tr("Timecode (1:12), frames (36), seconds (1.5s), or a step from where it is (+12f)")));
  input.problem = wrappedLabel("problem");
  input.problem->setProperty("role", "problem");
  input.problem->hide();
  form.addRow(label, input.text);
  form.addRow(QString(), input.problem);
  connect(input.text, &QLineEdit::textEdited, this, [this, field] { take(field); });
  // What was typed shortly is then shown as timecode.
  connect(input.text, &QLineEdit::editingFinished, this, [this, field] {
    if (trim_ && inputs_[field].isTime) showTimes();
  });
}

void TrimDialog::chooseClip(int index) {
  const QString path = clips_->itemData(index).toString();
  const TimelineItem* const clip = clipAt(*timeline_, path);
  trim_.reset();
  if (clip) trim_.emplace(*clip);
  for (const Field field : {eIn, eOut, eLength}) {
    inputs_[field].text->setEnabled(clip);
    inputs_[field].isTime = true;
    say(field, {});
  }
  if (clip) showTimes();
  if (!clip) material_->setText(tr("This edit has no clip that can be trimmed."));
  allow();
}

void TrimDialog::correct(const ClipTrim& trim, const QString& why) {
  if (!trim_ || trim_->path() != trim.path()) return;  // the clip is gone
  trim_->setIn(trim.in());
  trim_->setOut(trim.out());
  showTimes();
  reason_->setText(why);
  reason_->show();
  allow();
  resize(width(), sizeHint().height());
}

long TrimDialog::frameOf(Field field) const {
  return field == eLength ? trim_->length() : field == eIn ? trim_->in() : trim_->out();
}

long TrimDialog::firstOf(Field field) const {
  return field == eLength ? trim_->firstOut() - trim_->firstIn()
         : field == eIn   ? trim_->firstIn()
                          : trim_->firstOut();
}

// In and out stay where they are while the other is typed; a length moves out.
void TrimDialog::take(Field field) {
  Input& input = inputs_[field];
  const Timecode& timecode = trim_->timecode();
  const auto read =
      timecode.read(input.text->text().toStdString(), timecode.secondsAt(firstOf(field)));
  input.isTime = static_cast<bool>(read);
  if (!read) {
    say(field, readableText(read.error().message));
    return allow();
  }
  const long frame = timecode.frameAt(*read);
  field == eIn ? trim_->setIn(frame) : trim_->setOut(field == eOut ? frame : trim_->in() + frame);
  // A time elsewhere that was none is what follows from this one now.
  for (const Field each : {eIn, eOut, eLength}) {
    inputs_[each].isTime = true;
    say(each, each == field ? problemOf(field) : QString());
  }
  showTimes(field);
  allow();
}

QString TrimDialog::problemOf(Field field) const {
  const bool isTooShort = field == eLength && trim_->length() < 1;
  return isTooShort ? tr("A clip is one frame long at least.") : trim_->problem();
}

void TrimDialog::showTimes(std::optional<Field> butFor) {
  for (const Field field : {eIn, eOut, eLength}) {
    if (field == butFor) continue;
    inputs_[field].text->setText(QString::fromStdString(trim_->timecode().text(frameOf(field))));
  }
  material_->setText(trim_->materialText());
}

void TrimDialog::say(Field field, const QString& problem) {
  inputs_[field].problem->setText(problem);
  inputs_[field].problem->setVisible(!problem.isEmpty());
  // A screen reader tells it with the field.
  inputs_[field].text->setAccessibleDescription(problem);
}

void TrimDialog::allow() {
  QString why;
  if (trim_ && !trim_->isChanged()) why = tr("Nothing is changed yet.");
  for (const Input& input : inputs_) {
    if (!input.problem->text().isEmpty()) why = input.problem->text();
  }
  QPushButton* const ok = buttons_->button(QDialogButtonBox::Ok);
  ok->setEnabled(trim_ && why.isEmpty());
  ok->setToolTip(why.isEmpty() ? QString() : plainTip(why));
}

}  // namespace korvel
