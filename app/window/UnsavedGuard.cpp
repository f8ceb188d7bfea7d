#include "app/window/UnsavedGuard.h"

#include "app/window/Question.h"
#include "app/window/Texts.h"

namespace korvel {

namespace {

QStringList saveLines(const std::vector<UnsavedEdit>& unsaved) {
  QStringList lines;
  for (const UnsavedEdit& edit : unsaved)
    lines << QStringLiteral("edit save ") + quoted(edit.cookie);
  return lines;
}

}  // namespace

void UnsavedGuard::before(const QString& what, const std::function<void()>& go,
                          const std::function<void()>& stay) {
  link_.askUnsaved([this, what, go, stay](const std::vector<UnsavedEdit>& unsaved) {
    if (asked_) return stay();
    unsaved.empty() ? go() : ask(what, unsaved, go, stay);
  });
}

void UnsavedGuard::ask(const QString& what, const std::vector<UnsavedEdit>& unsaved,
                       const std::function<void()>& go, const std::function<void()>& stay) {
  QStringList names;
  for (const UnsavedEdit& edit : unsaved) names << (edit.name.isEmpty() ? edit.cookie : edit.name);
  const QString text =
      unsaved.size() == 1
          ? QStringLiteral("One edit has changes that are not saved. Discarded changes are lost.")
          : QStringLiteral("%L1 edits have changes that are not saved. Discarded changes are lost.")
                .arg(unsaved.size());
  const auto unlessFailed = [go, stay](const CommandOutcome& outcome) {
    outcome.succeeded ? go() : stay();
  };
  asked_ = new Question(QStringLiteral("unsavedDialog"), what, text, names, &window_);
  asked_->usualAnswer(QStringLiteral("&Save"), [this, lines = saveLines(unsaved), unlessFailed] {
    link_.runAll(lines, unlessFailed);
  });
  asked_->answer(QStringLiteral("&Discard"),
                 [this, lines = discardLines(unsaved), go, unlessFailed] {
                   lines.isEmpty() ? go() : link_.runAll(lines, unlessFailed);
                 });
  asked_->otherwise(stay);
  asked_->ask();
}

QStringList UnsavedGuard::discardLines(const std::vector<UnsavedEdit>& unsaved) const {
  QStringList lines;
  if (!link_.commands().all().contains("edit revert")) return lines;
  for (const UnsavedEdit& edit : unsaved) {
    lines << QStringLiteral("edit revert ") + quoted(edit.cookie);
  }
  return lines;
}

}  // namespace korvel
