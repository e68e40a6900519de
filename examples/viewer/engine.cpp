// SPDX-License-Identifier: MIT
#include "engine.h"

#include "imageprovider.h"
#include "inputmode.h"
#include "video.h"
#include "viewer.h"

#include <QFont>
#include <QGuiApplication>
#include <QLocale>
#include <QQmlContext>
#include <QQmlEngine>
#include <QTranslator>

void registerTypes()
{
    qmlRegisterType<Video>("Viewer", 1, 0, "Video");
}

void setUpEngine(QQmlEngine &engine, Viewer &viewer)
{
    for (const QString &name : {TILES, PICTURES})
        engine.addImageProvider(name, new ImageProvider(name));
    auto *input = new InputMode;
    input->setParent(&engine);
    engine.rootContext()->setContextProperty("input", input);
    engine.rootContext()->setContextProperty("viewer", &viewer);
}

void setUpApplication(const QString &language)
{
    static auto *const translator = new QTranslator(qApp);
    QGuiApplication::removeTranslator(translator);
    translator->load(":/i18n/viewer_" + language);
    QGuiApplication::installTranslator(translator);
    QLocale::setDefault(QLocale(language));
    QFont font;
    font.setFamilies({"Inter", "Noto Sans", "Roboto", "DejaVu Sans"});
    QGuiApplication::setFont(font);
}
