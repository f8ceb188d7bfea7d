#include "app/window/DetailPane.h"

#include <QPlainTextEdit>
#include <QStackedWidget>
#include <QVBoxLayout>
#include <utility>

#include "app/window/ObjectsModel.h"
#include "app/window/Texts.h"

namespace korvel {

namespace {

ElidedLabel* elasticLabel(const char* role) {
  auto* label = new ElidedLabel;
  label->setProperty("role", role);
  label->setSizePolicy(QSizePolicy::Ignored, QSizePolicy::Preferred);
  return label;
}

}  // namespace

DetailPane::DetailPane(QWidget* parent)
    : QWidget(parent),
      heading_(elasticLabel("heading")),
      facts_(elasticLabel("quiet")),
      change_(new MessageBar(QStringLiteral("changeBar"))),
      missing_(new MessageBar(QStringLiteral("missingBar"))),
      stack_(new QStackedWidget),
      view_(new TimelineView),
      words_(new QPlainTextEdit) {
  words_->setReadOnly(true);
  words_->setTabChangesFocus(true);
  words_->setAccessibleName(tr("What the chosen object holds"));
  heading_->setObjectName(QStringLiteral("detailHeading"));
  facts_->setAlignment(Qt::AlignRight | Qt::AlignVCenter);
  stack_->addWidget(view_);
  stack_->addWidget(words_);
  auto* top = new QHBoxLayout;
  top->setContentsMargins(10, 8, 10, 8);
  top->addWidget(heading_, 3);
  top->addWidget(facts_, 4);
  auto* layout = new QVBoxLayout(this);
  layout->setContentsMargins(0, 0, 0, 0);
  layout->setSpacing(0);
  layout->addLayout(top);
  layout->addWidget(stack_, 1);
  layout->addWidget(missing_);
  layout->addWidget(change_);
  connect(change_, &MessageBar::acted, this, [this] {
    change_->hide();
    // The user asked for the present state, not for the version that was shown.
    version_.clear();
    shownContent_ = row_.content;
    Q_EMIT seen(row_.key);
    Q_EMIT timelineWanted(row_.cookie, {});
  });
  choose(std::nullopt, ObjectKind::eEdits, {});
}

void DetailPane::choose(const std::optional<ObjectRow>& row, ObjectKind kind,
                        const QString& contents) {
  row_ = before_ = row.value_or(ObjectRow());
  kind_ = kind;
  shownChanges_ = row_.elsewhere.count;
  shownContent_ = row_.content;
  wasDeleted_ = row_.isDeleted;
  version_.clear();
  change_->hide();
  isOutdated_ = false;
  const bool isEdit = kind == ObjectKind::eEdits;
  stack_->setCurrentWidget(isEdit || !row ? static_cast<QWidget*>(view_) : words_);
  contents_ = contents;
  showLongText(*words_, contents);
  if (!row) {
    view_->show(nullptr);
    view_->setHint(tr("Choose an edit to see its timeline."));
  } else if (isEdit) {
    // The drawing of another edit must not stay under this heading.
    if (!view_->timeline() || view_->timeline()->cookie != row_.cookie) view_->show(nullptr);
    view_->setHint(view_->timeline() ? QString() : tr("Reading the edit…"));
    Q_EMIT timelineWanted(row_.cookie, {});
  }
  showHeading();
  showMissing();
  Q_EMIT followingChanged();
}

void DetailPane::showVersion(const QString& version, const QString& title) {
  if (row_.key.isEmpty() || kind_ != ObjectKind::eEdits) return;
  version_ = version;
  versionTitle_ = title;
  showHeading();
  Q_EMIT timelineWanted(row_.cookie, version_);
}

void DetailPane::update(const ObjectRow& row, const QString& contents) {
  before_ = std::exchange(row_, row);
  // Only what differs: setting a text scrolls it to its beginning.
  if (std::exchange(contents_, contents) != contents) showLongText(*words_, contents);
  showHeading();
  checkFollowing();
  showChange();
  showMissing();
  Q_EMIT followingChanged();
}

void DetailPane::showMissing() {
  const QString& from = row_.missingFrom;
  const bool areSeveral = from.contains(QLatin1String(", "));
  const QString form = areSeveral ? tr("Unsaved changes of %1 are missing here until they save.")
                                  : tr("Unsaved changes of %1's are missing here until %1 saves.");
  const QString text = from.isEmpty() ? QString() : form.arg(oneLine(from));
  // One that the user closed stays closed until something else is missing.
  if (std::exchange(missingText_, text) == text) return;
  text.isEmpty() ? missing_->hide() : missing_->tell(MessageBar::Kind::eNote, text);
}

void DetailPane::showHeading() {
  heading_->setText(row_.key.isEmpty() ? tr("Timeline") : shownName(row_));
  QStringList facts;
  if (!version_.isEmpty()) {
    facts << tr("Version of %1; marked: what changed since").arg(versionTitle_);
  } else if (kind_ == ObjectKind::eEdits && !row_.key.isEmpty()) {
    facts << (row_.owner.isEmpty() ? tr("belongs to nobody")
                                   : tr("belongs to %1").arg(oneLine(row_.owner)));
    const TimelinePtr& timeline = view_->timeline();
    if (timeline && timeline->cookie == row_.cookie && timeline->problem.isEmpty()) {
      facts << tr("%1 at %L2 frames a second")
                   .arg(timecode(timeline->length, timeline->rate))
                   .arg(timeline->rate);
    }
    if (isFollowing()) facts << tr("changes are followed");
    if (row_.isDirty) facts << tr("unsaved changes");
    if (row_.isUnsavedElsewhere) facts << tr("changed elsewhere and not saved yet");
  }
  facts_->setText(listed(facts));
  facts_->setToolTip(plainTip(listed(facts)));
}

void DetailPane::showChange() {
  // Tells of a change instead of redrawing: a timeline must not move under the user's eyes.
  if (kind_ != ObjectKind::eEdits) return;
  const bool isBack = std::exchange(wasDeleted_, row_.isDeleted) && !row_.isDeleted;
  const bool isTold = std::exchange(shownChanges_, row_.elsewhere.count) >= row_.elsewhere.count;
  if (row_.isDeleted) return change_->hide();  // there is no later state to be shown
  if (isBack && row_.content == shownContent_) return;
  if (isTold) {
    if (change_->isHidden()) shownContent_ = row_.content;
    // What was done is known a moment later than that something was.
    if (change_->isHidden() || isDeedShown()) return;
    if (isOutdated_) return tellChange();
    return isFollowing() && canShowNow() ? showFollowed() : void();
  }
  if (isFollowing() && canShowNow()) return showFollowed();
  if (isDrawnAlready()) return;
  isOutdated_ = true;
  tellChange();
}

/// Whether the one change that came leaves the drawing as it is: somebody else owns the edit, or
/// has saved what was announced and shown before.
bool DetailPane::isDrawnAlready() const {
  if (isOutdated_ || row_.elsewhere.count != before_.elsewhere.count + 1) return false;
  const bool isSave = before_.isUnsavedElsewhere && !row_.isUnsavedElsewhere;
  return row_.owner != before_.owner || (isSave && row_.missingFrom.isEmpty());
}

QString DetailPane::whyNotFollow() const {
  if (row_.key.isEmpty() || kind_ != ObjectKind::eEdits) return tr("Choose an edit first.");
  if (row_.isDeleted) return tr("It was deleted by another.");
  return row_.isDirty ? tr("You have unsaved changes in it: save or drop them first.") : QString();
}

void DetailPane::follow() {
  if (!whyNotFollow().isEmpty()) return;
  followed_ = row_.cookie;
  wasOpen_ = row_.isOpen;
  if (!row_.isOpen) Q_EMIT openWanted(row_.cookie);
  // What waited to be shown is shown with the rest; a bar that tells something else goes.
  if (!isOutdated_) change_->hide();
  if (isOutdated_ && canShowNow()) showFollowed();
  showHeading();
  Q_EMIT followingChanged();
}

void DetailPane::unfollow() {
  followed_.clear();
  showHeading();
  Q_EMIT followingChanged();
}

/// Ends the following of an edit that the user changes or has closed.
void DetailPane::checkFollowing() {
  if (!isFollowing()) return;
  const bool isClosed = std::exchange(wasOpen_, row_.isOpen) && !row_.isOpen;
  if (!isClosed && !row_.isDirty && !row_.isDeleted) return;
  unfollow();
  if (!row_.isDirty) return;
  change_->tell(MessageBar::Kind::eNote,
                tr("You change this edit yourself: it is not followed any more."));
  change_->offer({});
}

/// Not under the user's hand, and not in place of a version that the user looks at.
bool DetailPane::canShowNow() const { return version_.isEmpty() && !view_->trim(); }

void DetailPane::showFollowed() {
  shownContent_ = row_.content;
  const RemoteChanges& last = row_.elsewhere;
  const bool isKnown = !last.did.isEmpty() && !last.doer.isEmpty();
  const QString who = last.by.isEmpty() ? tr("Another station") : oneLine(last.by);
  change_->tell(MessageBar::Kind::eChange,
                isKnown ? tr("%1 %2, %3.").arg(oneLine(last.doer), last.did, shownTime(last.at))
                        : tr("%1 changed this, %2.").arg(who, shownTime(last.at)));
  change_->offer({});
  Q_EMIT seen(row_.key);
  Q_EMIT timelineWanted(row_.cookie, {});
}

bool DetailPane::isDeedShown() const {
  const QString did = row_.elsewhere.did;
  // With what follows it: "trimmed Clip-1" is not "trimmed Clip-10".
  return did.isEmpty() || change_->text().contains(did + QLatin1String(", "));
}

void DetailPane::tellChange() {
  change_->tell(MessageBar::Kind::eChange, changeText());
  change_->offer({tr("Show the change (F7)")});
}

QString DetailPane::changeText() const {
  const RemoteChanges& last = row_.elsewhere;
  if (last.did.isEmpty() || last.doer.isEmpty()) {
    return tr("Another station changed this. The drawing is as you left it.");
  }
  return tr("%1 %2, %3. The drawing is as you left it.")
      .arg(oneLine(last.doer), last.did, shownTime(last.at));
}

void DetailPane::takeTimeline(const TimelinePtr& timeline) {
  if (kind_ != ObjectKind::eEdits || timeline->cookie != row_.cookie) return;
  // An answer to an earlier question: the user has chosen another version meanwhile.
  if (timeline->version != version_) return;
  view_->setHint(timeline->problem);
  // It would say that the drawing is as it was left.
  if (isOutdated_ && version_.isEmpty() && !isFollowing()) change_->hide();
  isOutdated_ = false;
  const RemoteChanges& last = row_.elsewhere;
  const bool isMarked = isFollowing() && version_.isEmpty() && !change_->isHidden();
  view_->show(isMarked ? markedAt(timeline, last.didPath, change_->text()) : timeline);
  if (isMarked) view_->reveal(drawnPlace(last.didPath));
  showHeading();
}

}  // namespace korvel
