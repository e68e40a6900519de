// SPDX-License-Identifier: MIT
#ifndef INPUTMODE_H
#define INPUTMODE_H

#include <QObject>

/// Distinguishes keys from the touch screen: the focus is shown only while keys are used.
class InputMode : public QObject
{
    Q_OBJECT
    Q_PROPERTY(bool isKeys READ isKeys NOTIFY changed)

public:
    InputMode();

    bool isKeys() const { return mIsKeys; }
    bool eventFilter(QObject *receiver, QEvent *event) override;

signals:
    void changed();

private:
    bool mIsKeys = false;
};

#endif // INPUTMODE_H
