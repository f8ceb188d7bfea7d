#include "app/window/StatusLine.h"

#include <QEvent>
#include <QLocale>
#include <algorithm>

#include "app/window/ActionTable.h"
#include "app/window/Appearance.h"
#include "app/window/PeoplePane.h"
#include "app/window/Texts.h"

namespace korvel {

namespace {

constexpr int kAround = 84;       // the sign, the size grip, and the gaps between the texts
constexpr int kBusyWidth = 160;   // of what it waits for, before anything else gives way
constexpr int kLeastShown = 100;  // of a text that does not fit whole

ElidedLabel* quietLabel(const char* name) {
  auto* label = new ElidedLabel;
  label->setObjectName(QString::fromLatin1(name));
  label->setProperty("role", "quiet");
  label->setContentsMargins(6, 2, 6, 2);
  return label;
}

/// "2 here, 1 gone without goodbye". Stations that tell nothing of themselves leave markers alone.
QString presenceText(const PresenceState& presence) {
  const auto marked = static_cast<int>(presence.marked.size());
  if (presence.stations.empty()) return StatusLine::tr("%Ln users active", nullptr, marked);
  const auto here = static_cast<int>(std::ranges::count_if(presence.stations, &StationRow::isHere));
  const int gone = static_cast<int>(presence.stations.size()) - here;
  QStringList texts{StatusLine::tr("%Ln here", nullptr, here)};
  if (gone > 0) texts << StatusLine::tr("%Ln gone without goodbye", nullptr, gone);
  if (marked > 0) texts << StatusLine::tr("%Ln more marked active", nullptr, marked);
  return listed(texts);
}

/// Who is meant, a line each.
QStringList presenceLines(const PresenceState& presence) {
  QStringList lines;
  for (const StationRow& each : presence.stations) lines.append(stationText(each));
  for (const QString& user : presence.marked) {
    lines.append(
        StatusLine::tr("%1: marked active, by a station that tells nothing of itself or is gone")
            .arg(oneLine(user)));
  }
  return lines;
}

}  // namespace

StatusLine::StatusLine(QWidget* parent)
    : QStatusBar(parent),
      sign_(new QLabel),
      busy_(quietLabel("busy")),
      who_(quietLabel("who")),
      network_(quietLabel("network")),
      counts_(quietLabel("counts")) {
  busy_->setSizePolicy(QSizePolicy::Ignored, QSizePolicy::Fixed);
  sign_->setObjectName(QStringLiteral("sign"));
  addWidget(sign_);
  addWidget(busy_, 1);
  for (ElidedLabel* label : {who_, network_, counts_}) addPermanentWidget(label);
  showBusy(tr("the start of the station"), 0);
}

void StatusLine::showNews(const News& news) {
  const StationIdentity& station = news.station;
  if (station.isReady && who_->text().isEmpty()) {
    who_->setText(
        tr("%1 on %2 (machine %3)")
            .arg(oneLine(station.user), oneLine(station.host), QString::number(station.machine)));
    network_->setText((station.networkMode ? tr("network on, port %1") : tr("network off, port %1"))
                          .arg(station.port));
    plugin_ = station.plugin;
    showBusy({}, 0);
  }
  if (trouble_ != news.trouble) {
    trouble_ = news.trouble;
    showSign();
  }
  sent_ = news.sent;
  received_ = news.received;
  showCounts();
}

void StatusLine::showPresence(const PresenceState& presence) {
  if (presence == presence_) return;
  presence_ = presence;
  showCounts();
  fit();
}

void StatusLine::showCounts() {
  const QString text =
      listed({tr("%L1 sent, %L2 received").arg(sent_).arg(received_), presenceText(presence_)});
  // Called ten times a second; fit() lays the line out anew.
  if (counts_->text() == text) return;
  counts_->setText(text);
  fit();
}

void StatusLine::showBusy(const QString& what, int seconds) {
  waiting_ = what.isEmpty() ? QString()
             : seconds < 1  ? tr("Waiting for %1").arg(what)
                            : tr("Waiting for %1 (%2 s)").arg(what, QLocale().toString(seconds));
  showSign();
}

void StatusLine::showSign() {
  const bool isWell = waiting_.isEmpty() && trouble_.isEmpty();
  sign_->setPixmap(isWell ? icon(Glyph::eFree, colours().good).pixmap(16, 16)
                          : icon(Glyph::eBusy, colours().warn).pixmap(16, 16));
  const QString text = !waiting_.isEmpty()   ? waiting_
                       : !trouble_.isEmpty() ? inWindowWords(trouble_)
                                             : tr("Ready");
  busy_->setText(oneLine(text));
  fit();
}

QString StatusLine::busyText() const { return busy_->text(); }

void StatusLine::resizeEvent(QResizeEvent* event) {
  QStatusBar::resizeEvent(event);
  fit();
}

void StatusLine::changeEvent(QEvent* event) {
  QStatusBar::changeEvent(event);
  if (event->type() == QEvent::PaletteChange) showSign();  // in the colours of now
}

// Shows the texts that fit, the most important first. The station's identity may be shortened.
void StatusLine::fit() {
  int room = width() - kAround - std::min(busy_->sizeHint().width(), kBusyWidth);
  for (ElidedLabel* label : {who_, network_, counts_}) {
    const int wanted = label->sizeHint().width();
    const bool fits = room >= (label == who_ ? std::min(wanted, kLeastShown) : wanted);
    label->setVisible(fits && !label->text().isEmpty());
    label->setMaximumWidth(std::max(kLeastShown, label == who_ ? room : wanted));
    room = fits ? room - wanted : 0;
  }
  QStringList all{busy_->text(), who_->text(), plugin_, network_->text(), counts_->text()};
  all += presenceLines(presence_);
  all.removeAll(QString());
  for (ElidedLabel* label : {busy_, who_, network_, counts_}) {
    label->setToolTip(plainTip(all.join(QLatin1Char('\n'))));
    label->setAccessibleName(tr("Status: %1").arg(label->text()));
  }
}

}  // namespace korvel
