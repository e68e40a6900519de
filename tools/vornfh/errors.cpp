// SPDX-License-Identifier: MIT
#include "errors.h"

#include <cstring>

UsageError wrongValue(const QString &option, const QString &text, const QString &wanted)
{
    return UsageError(QString("%1: '%2' is not %3").arg(option, text, wanted));
}

QString errorText(int error)
{
    return QString::fromLocal8Bit(std::strerror(error));
}
