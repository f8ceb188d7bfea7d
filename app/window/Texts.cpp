#include "app/window/Texts.h"

#include "app/CommandLine.h"

QString quoted(const QString& word) {
  return QString::fromStdString(quotedWord(word.toStdString()));
}
