// SPDX-License-Identifier: MIT
#ifndef ENGINE_H
#define ENGINE_H

#include <QString>

class QQmlEngine;
class Viewer;

/// Makes the types of the viewer known to QML. Call this before QML is loaded.
void registerTypes();

/// Gives QML the viewer, the input mode and the pictures.
void setUpEngine(QQmlEngine &engine, Viewer &viewer);

/// Sets the language of the interface, "de" or "en", its fonts, and the format of numbers and dates.
void setUpApplication(const QString &language);

#endif // ENGINE_H
