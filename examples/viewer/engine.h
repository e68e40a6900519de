// SPDX-License-Identifier: MIT
#ifndef ENGINE_H
#define ENGINE_H

#include <QString>

class QQmlEngine;
class Viewer;

/// Gives QML the viewer, the input mode, the pictures and the type Video.
void setUpEngine(QQmlEngine &engine, Viewer &viewer);

/// Sets the language of the interface, "de" or "en", its fonts and its way of writing numbers.
void setUpApplication(const QString &language);

#endif // ENGINE_H
