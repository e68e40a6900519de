// SPDX-License-Identifier: MIT
#include "commands.h"
#include "device.h"
#include "folders.h"
#include "output.h"
#include "paths.h"
#include "pruning.h"
#include "report.h"
#include "signals.h"
#include "text.h"

#include <QJsonObject>

#include <memory>
#include <optional>

using namespace VORN_FILE_HANDLER;

namespace {

struct Request {
    eStorageType storage = STORAGE_MMC;
    PrunePolicy policy;
    std::optional<KeepFree> keepFree; // from which policy.keepFree is calculated
    bool isDryRun = false;

    bool hasPolicy() const
    {
        return policy.hasSpacePolicy() || keepFree || policy.keepLast > 0 || policy.keepWithin > 0;
    }
};

/// The policy, with --keep-free in bytes. Throws UsageError if no object could be kept.
PrunePolicy policyFor(const Storage &storage, const Request &request)
{
    PrunePolicy policy = request.policy;
    if (request.keepFree)
        policy.keepFree = request.keepFree->bytesOn(storage.location);
    return policy;
}

QJsonObject toJson(const Storage &storage, const PruneResult &result)
{
    return {
        {"storage", storage.name}, {"location", storage.location}, {"objects", result.objects},
        {"bytes", result.bytes},   {"left", result.left},          {"free", result.free},
        {"met", result.isMet},
    };
}

ExitCode pruneStorage(const Storage &storage, const Request &request)
{
    requireNotRoot(storage);
    requireWritable(storage);
    requireReadableFolder(storage.location);
    const PrunePolicy policy = policyFor(storage, request);
    QStringList deleted;
    PruneResult result;
    const auto report = [&deleted](const std::vector<FileFacts> &files) {
        for (const FileFacts &file : files) {
            deleted.append(file.path);
            reportDone(printable(file.path), [&file] { return toJson(file, {{"action", "deleted"}}); });
        }
    };
    const auto printSummary = [&deleted](const QJsonObject &summary) {
        if (format() == Format::Document) {
            printDocument("deleted", summary);
            printIfLost(deleted);
        } else if (isJson() && !summary.isEmpty()) {
            printResult(summary);
        }
    };
    catchStopSignals();
    try {
        result = prune(storage, policy, report, request.isDryRun);
    } catch (const Failure &) {
        printSummary({});
        throw;
    }
    printSummary(toJson(storage, result));
    if (result.isInterrupted)
        throw Failure(request.isDryRun ? "interrupted"
                                       : "interrupted after deleting " + counted(result.objects, "object"));
    if (!result.isMet)
        printError(unmetPolicies(storage, policy, result));
    if (result.failures > 0)
        throw Failure(counted(result.failures, "object") + " not deleted");
    return result.isMet ? DONE : NOT_MET;
}

// The command line

void setKeepFree(Request &request, const QString &text)
{
    request.keepFree = KeepFree::parsed(text);
}

void setMaxSize(Request &request, const QString &text)
{
    request.policy.maxSize = parsedSize(text);
    if (request.policy.maxSize.value_or(0) <= 0)
        throw wrongValue("--max-size", text, "a size such as 2G");
}

void setKeepLast(Request &request, const QString &text)
{
    bool isNumber = false;
    request.policy.keepLast = text.toLongLong(&isNumber);
    if (!isNumber || request.policy.keepLast <= 0)
        throw wrongValue("--keep-last", text, "a whole number of at least 1");
}

void setKeepWithin(Request &request, const QString &text)
{
    request.policy.keepWithin = parsedAge(text).value_or(0);
    if (request.policy.keepWithin == 0)
        throw wrongValue("--keep-within", text, "an age such as 7d, 12h, 30m or 90s");
}

} // namespace

void addPrune(CommandLine &line)
{
    const auto request = std::make_shared<Request>();
    const Command command = line.add(
        "prune",
        "Deletes the oldest objects of a storage device until the policies are met. An object is all files\n"
        "of one number in one folder, such as a recording and its thumbnail; the oldest is the first in\n"
        "the numbering. If neither --keep-free nor --max-size is given, all objects are deleted except\n"
        "those that --keep-last or --keep-within keeps. Protected objects, the newest object and objects\n"
        "that are being written are never deleted. The exit code is 3 if a policy is still not met",
        [&line, request] {
            if (!request->hasPolicy())
                throw UsageError(
                    "prune needs at least one of --keep-free, --max-size, --keep-last and --keep-within");
            return pruneStorage(line.storages().require(request->storage), *request);
        });
    const auto addPolicy = [&](const char *name, void (*set)(Request &, const QString &), const char *type,
                               const char *description) {
        command
            .option(
                name, [=](const std::string &text) { set(*request, fromCommandLine(text, name)); },
                description)
            .type(type);
    };
    addStorageArgument(command, request->storage);
    addPolicy("--keep-free", setKeepFree, "SIZE|PERCENT",
              "Delete until this much of the storage device is free");
    addPolicy("--max-size", setMaxSize, "SIZE",
              "Delete until all objects together take up no more than this");
    addPolicy("--keep-last", setKeepLast, "N", "Keep the N newest objects");
    addPolicy("--keep-within", setKeepWithin, "AGE", "Keep objects that were modified within this time");
    addDocumentOptions(command, "Print an object with the deleted files");
    addDryRun(command, request->isDryRun);
    command.example("vornfh prune sd --keep-free 10% --keep-within 12h");
}
