#include "app/window/StatusLine.h"

#include <QLabel>

#include "app/window/Appearance.h"
#include "app/window/Icons.h"
#include "app/window/Texts.h"

namespace {

QLabel* quietLabel(const char* name) {
  auto* label = new QLabel;
  label->setObjectName(QString::fromLatin1(name));
  label->setProperty("role", "quiet");
  label->setTextFormat(Qt::PlainText);
  label->setContentsMargins(6, 2, 6, 2);
  label->setMinimumWidth(10);
  label->setSizePolicy(QSizePolicy::Ignored, QSizePolicy::Fixed);
  return label;
}

}  // namespace

StatusLine::StatusLine(QWidget* parent)
    : QStatusBar(parent),
      sign_(new QLabel),
      busy_(quietLabel("busy")),
      who_(quietLabel("who")),
      network_(quietLabel("network")),
      counts_(quietLabel("counts")) {
  busy_->setAccessibleName(QStringLiteral("What the station waits for"));
  addWidget(sign_);
  addWidget(busy_, 4);
  addPermanentWidget(who_, 3);
  addPermanentWidget(network_, 2);
  addPermanentWidget(counts_, 3);
  counts_->setAlignment(Qt::AlignRight | Qt::AlignVCenter);
  showBusy(QStringLiteral("the start of the station"), 0);
}

void StatusLine::showNews(const News& news) {
  const StationIdentity& station = news.station;
  if (station.isReady && who_->text().isEmpty()) {
    who_->setText(QStringLiteral("%1 on %2 (machine %3)")
                      .arg(station.user, station.host)
                      .arg(station.machine));
    who_->setToolTip(plainTip(who_->text() + QStringLiteral(", ") + station.plugin));
    network_->setText(QStringLiteral("network %1, port %2")
                          .arg(station.networkMode ? QStringLiteral("on") : QStringLiteral("off"))
                          .arg(station.port));
    network_->setToolTip(network_->text());
    showBusy({}, 0);
  }
  sent_ = news.sent;
  received_ = news.received;
  showActiveUsers(activeUsers_);
}

void StatusLine::showActiveUsers(int count) {
  activeUsers_ = count;
  const QString text =
      QStringLiteral("%L1 sent, %L2 received, %3 active")
          .arg(sent_)
          .arg(received_)
          .arg(count == 1 ? QStringLiteral("1 user") : QStringLiteral("%1 users").arg(count));
  if (counts_->text() == text) return;
  counts_->setText(text);
  counts_->setToolTip(text);
}

void StatusLine::showBusy(const QString& what, int seconds) {
  const bool isBusy = !what.isEmpty();
  sign_->setPixmap(isBusy ? icon(Glyph::eBusy, colours().warn).pixmap(16, 16)
                          : icon(Glyph::eFree, colours().good).pixmap(16, 16));
  const QString text = !isBusy ? QStringLiteral("Ready")
                       : seconds < 1
                           ? QStringLiteral("Waiting for %1").arg(what)
                           : QStringLiteral("Waiting for %1 (%2 s)").arg(what).arg(seconds);
  busy_->setText(oneLine(text));
  busy_->setToolTip(plainTip(text));
}

QString StatusLine::busyText() const { return busy_->text(); }
