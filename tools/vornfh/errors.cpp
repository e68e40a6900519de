// SPDX-License-Identifier: MIT
#include "errors.h"

#include <cstring>

QString errorText(int error)
{
    return QString::fromLocal8Bit(std::strerror(error));
}
