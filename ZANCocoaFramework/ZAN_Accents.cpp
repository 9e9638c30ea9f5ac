#include "ZANCocoaFramework/ZAN_Accents.h"

#include <QString>

namespace corvana {

std::string withoutAccents(std::string_view text) {
  QString apart = QString::fromUtf8(text.data(), static_cast<qsizetype>(text.size()))
                      .normalized(QString::NormalizationForm_D);
  apart.removeIf([](QChar c) { return c.category() == QChar::Mark_NonSpacing; });
  return apart.normalized(QString::NormalizationForm_C).toStdString();
}

}  // namespace corvana
