#include "app/window/LogPane.h"

#include <QComboBox>
#include <QFontDatabase>
#include <QLabel>
#include <QListView>
#include <QRegularExpression>
#include <QScrollBar>
#include <QSortFilterProxyModel>
#include <QVBoxLayout>

#include "app/window/Appearance.h"
#include "app/window/Texts.h"

namespace korvel {

namespace {

/// Letters shown of a line; the tool tip has more.
constexpr qsizetype kLongestLine = 500;

QString kindWord(LogLine::Kind kind) {
  switch (kind) {
    case LogLine::Kind::eSent:
      return QStringLiteral("sent");
    case LogLine::Kind::eReceived:
      return QStringLiteral("received");
    case LogLine::Kind::eAssertion:
      return QStringLiteral("assertion");
    case LogLine::Kind::eNetwork:
      return QStringLiteral("network");
    case LogLine::Kind::eCommand:
      return QStringLiteral("command");
    case LogLine::Kind::eText:
      break;
  }
  return QStringLiteral("log");
}

QIcon kindIcon(LogLine::Kind kind) {
  const Colours& with = colours();
  switch (kind) {
    case LogLine::Kind::eSent:
      return icon(Glyph::eSent, with.accent);
    case LogLine::Kind::eReceived:
      return icon(Glyph::eReceived, with.good);
    case LogLine::Kind::eAssertion:
      return icon(Glyph::eProblem, with.bad);
    case LogLine::Kind::eNetwork:
      return icon(Glyph::eNetwork, with.warn);
    default:
      return icon(Glyph::eLog, with.quiet);
  }
}

}  // namespace

void LogModel::append(const std::vector<LogLine>& lines) {
  if (lines.empty()) return;
  const int first = static_cast<int>(lines_.size());
  beginInsertRows({}, first, first + static_cast<int>(lines.size()) - 1);
  lines_.insert(lines_.end(), lines.begin(), lines.end());
  endInsertRows();
  if (lines_.size() <= kMostLines) return;
  const auto excess = static_cast<int>(lines_.size() - kMostLines);
  beginRemoveRows({}, 0, excess - 1);
  lines_.erase(lines_.begin(), lines_.begin() + excess);
  endRemoveRows();
}

int LogModel::rowCount(const QModelIndex& parent) const {
  return parent.isValid() ? 0 : static_cast<int>(lines_.size());
}

QVariant LogModel::data(const QModelIndex& index, int role) const {
  const LogLine& line = lines_[static_cast<std::size_t>(index.row())];
  if (role == Qt::DisplayRole) {
    return QStringLiteral("%1  %2  %3")
        .arg(line.time.toString(QStringLiteral("HH:mm:ss")), kindWord(line.kind).leftJustified(9),
             line.text.left(kLongestLine).simplified());
  }
  if (role == Qt::DecorationRole) return kindIcon(line.kind);
  if (role == Qt::ToolTipRole) return plainTip(line.text);
  if (role == kKindRole) return static_cast<int>(line.kind);
  return {};
}

LogPane::LogPane(QWidget* parent)
    : QWidget(parent),
      model_(new LogModel(this)),
      proxy_(new QSortFilterProxyModel(this)),
      choice_(new QComboBox),
      view_(new QListView) {
  proxy_->setSourceModel(model_);
  proxy_->setFilterRole(LogModel::kKindRole);
  choice_->setObjectName(QStringLiteral("logChoice"));
  choice_->setAccessibleName(QStringLiteral("Which log lines to show"));
  choice_->addItem(QStringLiteral("Everything"), QString());
  for (const LogLine::Kind kind : {LogLine::Kind::eSent, LogLine::Kind::eReceived,
                                   LogLine::Kind::eAssertion, LogLine::Kind::eNetwork}) {
    const QString words[] = {QStringLiteral("Sent"), QStringLiteral("Received"),
                             QStringLiteral("Assertions"), QStringLiteral("Network")};
    choice_->addItem(words[static_cast<int>(kind)],
                     QStringLiteral("^%1$").arg(static_cast<int>(kind)));
  }
  view_->setModel(proxy_);
  // Otherwise Qt would measure thousands of lines.
  view_->setUniformItemSizes(true);
  view_->setFont(QFontDatabase::systemFont(QFontDatabase::FixedFont));
  view_->setSelectionMode(QAbstractItemView::ExtendedSelection);
  view_->setAccessibleName(QStringLiteral("Log"));
  view_->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
  auto* tools = new QHBoxLayout;
  tools->setContentsMargins(8, 6, 8, 6);
  tools->addWidget(new QLabel(QStringLiteral("Show")));
  tools->addWidget(choice_);
  tools->addStretch();
  auto* layout = new QVBoxLayout(this);
  layout->setContentsMargins(0, 0, 0, 0);
  layout->setSpacing(0);
  layout->addLayout(tools);
  layout->addWidget(view_, 1);
  connect(choice_, &QComboBox::currentIndexChanged, this, &LogPane::narrow);
}

void LogPane::append(const std::vector<LogLine>& lines) {
  if (lines.empty()) return;
  const QScrollBar& bar = *view_->verticalScrollBar();
  // Follows new lines only where the user has not scrolled up.
  const bool isAtEnd = bar.value() >= bar.maximum();
  model_->append(lines);
  if (isAtEnd) view_->scrollToBottom();
}

void LogPane::narrow() {
  proxy_->setFilterRegularExpression(choice_->currentData().toString());
  view_->scrollToBottom();
}

}  // namespace korvel
