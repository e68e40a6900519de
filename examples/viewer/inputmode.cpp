// SPDX-License-Identifier: MIT
#include "inputmode.h"

#include <QCoreApplication>
#include <QEvent>

InputMode::InputMode()
{
    QCoreApplication::instance()->installEventFilter(this);
}

bool InputMode::eventFilter(QObject *receiver, QEvent *event)
{
    const bool isKey = event->type() == QEvent::KeyPress;
    const bool isTouch = event->type() == QEvent::MouseButtonPress || event->type() == QEvent::TouchBegin;
    if ((isKey && !mIsKeys) || (isTouch && mIsKeys)) {
        mIsKeys = isKey;
        emit changed();
    }
    return QObject::eventFilter(receiver, event);
}
