// SPDX-License-Identifier: MIT
#include "checking.h"
#include "commands.h"
#include "device.h"
#include "ffmpeg.h"
#include "output.h"
#include "report.h"
#include "text.h"

#include <QJsonObject>

#include <memory>

using namespace VORN_FILE_HANDLER;

namespace {

struct Request {
    eStorageType storage = STORAGE_MMC;
    CheckOptions options;
    bool isNamesOnly = false;
};

void print(const Storage &storage, const CheckResult &result)
{
    QByteArray lines;
    for (const Finding &finding : result.findings)
        lines += (printable(finding.path) + ": " + printable(finding.text)
                  + (finding.isRepairable() ? " [repairable]" : "") + "\n")
                     .toUtf8();
    printLines(lines);
    const QString found =
        result.findings.isEmpty() ? "no findings" : counted(result.findings.size(), "finding");
    printLine(
        QString("%1: %2 in %3 with %4")
            .arg(storage.name, found, counted(result.folders, "folder"), counted(result.files, "file")));
    printLine(QString("%1: numbers left for %2, up to %3/DCF_%4")
                  .arg(storage.name, counted(result.numbering.left(), "recording"),
                       printable(folderName(result.numbering.lastFolder)))
                  .arg(LAST_FILE));
}

QJsonObject toJson(const Storage &storage, const CheckResult &result)
{
    return {
        {"storage", storage.name},
        {"location", storage.location},
        {"folders", result.folders},
        {"files", result.files},
        {"recordingsLeft", result.numbering.left()},
    };
}

ExitCode check(const Storage &storage, const Request &request)
{
    requireMounted(storage);
    CheckOptions options = request.options;
    options.hasContents = !request.isNamesOnly;
    if (options.isReadingAll)
        requireFfmpeg("check --read-all");
    if (isJson())
        options.report = [](const Finding &finding) { printResult(finding.toJson()); };
    const CheckResult result = checkStorage(storage, options);
    if (format() == Format::Document)
        printDocument("findings", toJson(storage, result));
    else if (isJson())
        printResult(toJson(storage, result));
    else
        print(storage, result);
    return result.findings.isEmpty() ? DONE : NOT_MET;
}

} // namespace

void addCheck(CommandLine &line)
{
    const auto request = std::make_shared<Request>();
    const Command command = line.add(
        "check",
        "Finds problems on a storage device: damaged and incomplete files, names that a player (another\n"
        "device or program that reads the card) would reject, and files that the library skips or can no\n"
        "longer reach. Only the start, the end and the structure of each file are read. Changes nothing.\n"
        "The exit code is 3 if there are findings",
        [&line, request] { return check(line.storages().require(request->storage), *request); });
    addStorageArgument(command, request->storage);
    const Option names =
        command.flag("--names", request->isNamesOnly, "Check only names and sizes; open no file");
    command
        .flag("--read-all", request->options.isReadingAll,
              "Read every byte, and decode all files with ffmpeg")
        .excludes(names);
    command.flag("--dcf", request->options.isDcf,
                 "Require names that follow the camera standard (DCF): for folders, a number from 100 to\n"
                 "999 and five characters A-Z 0-9 _; for files, four such characters, a number from 0001\n"
                 "to 9999, and an extension of at most three characters");
    addDocumentOptions(command, "Print an object with the findings");
    command.example("vornfh check sd --read-all");
}
