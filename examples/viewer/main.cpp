// SPDX-License-Identifier: MIT
#include "engine.h"
#include "viewer.h"

#include <QCommandLineParser>
#include <QGuiApplication>
#include <QQmlApplicationEngine>

#include <cstdio>
#include <cstdlib>

using namespace VORN_FILE_HANDLER;

namespace {

struct Option {
    const char *name;
    eStorageType type;
    const char *description;
};

constexpr Option STORAGES[] = {
    {"mmc", STORAGE_MMC, "Location of the internal memory, for example /mnt/mmc/DCIM."},
    {"sd", STORAGE_SD, "Location of the SD card."},
    {"usb", STORAGE_USB, "Location of the USB storage."},
};

struct Configuration {
    QString suffix;
    QString language;
    QString locations[3];
    QVector<eStorageType> storages; // those with a location
};

[[noreturn]] void fail(const char *message)
{
    std::fprintf(stderr, "viewer: %s; see viewer --help\n", message);
    std::exit(2);
}

Configuration parse(const QGuiApplication &application)
{
    QCommandLineParser parser;
    parser.setApplicationDescription("Shows the media of a camera on an 800 x 480 touch screen.");
    parser.addHelpOption();
    for (const Option &storage : STORAGES)
        parser.addOption({storage.name, storage.description, "DIR"});
    parser.addOption({"suffix", "String after the number in the name of a folder.", "S"});
    parser.addOption({"language", "Language: de or en. Default: the language of the system.", "LANGUAGE",
                      QLocale::system().language() == QLocale::German ? "de" : "en"});
    parser.process(application);

    Configuration configuration;
    configuration.suffix = parser.value("suffix");
    configuration.language = parser.value("language");
    for (const Option &storage : STORAGES) {
        if (!parser.isSet(storage.name))
            continue;
        configuration.locations[storage.type] = QDir(parser.value(storage.name)).absolutePath();
        configuration.storages.append(storage.type);
    }
    if (!parser.positionalArguments().isEmpty())
        fail("unexpected argument");
    if (configuration.storages.isEmpty())
        fail("no storage device is configured");
    if (configuration.suffix.isEmpty())
        fail("--suffix is missing");
    if (configuration.language != "de" && configuration.language != "en")
        fail("--language must be de or en");
    return configuration;
}

} // namespace

int main(int argc, char **argv)
{
    const QGuiApplication application(argc, argv);
    const Configuration configuration = parse(application);
    const auto &[mmc, sd, usb] = configuration.locations;
    VornFileHandler::init(configuration.suffix, mmc, QString(), sd, QString(), usb, QString());
    setUpApplication(configuration.language);

    Viewer viewer(configuration.storages);
    QQmlApplicationEngine engine;
    registerTypes();
    setUpEngine(engine, viewer);
    engine.load("qrc:/qml/Main.qml");
    return engine.rootObjects().isEmpty() ? EXIT_FAILURE : QGuiApplication::exec();
}
