// SPDX-License-Identifier: MIT
#include "completion.h"

#include "media.h"
#include "storages.h"
#include "text.h"

#include <QDir>
#include <QFile>
#include <QRegularExpression>
#include <QVector>

#include <algorithm>
#include <utility>

namespace {

bool isOption(const std::string &word)
{
    return word.size() > 1 && word.front() == '-';
}

bool takesValue(const CLI::Option &option)
{
    return option.get_items_expected_max() > 0;
}

/// The first sentence of a description, on one line.
QString summaryOf(const std::string &description)
{
    static const QRegularExpression END("[.;] ");
    return QString::fromStdString(description).replace('\n', ' ').section(END, 0, 0);
}

bool isStorage(const std::string &word)
{
    return storageNamed(QString::fromStdString(word)).has_value();
}

/// Null if there is no such command.
const CLI::App *commandNamed(const CLI::App &app, const std::string &name)
{
    const auto found =
        app.get_subcommands([&name](const CLI::App *command) { return command->check_name(name); });
    return found.empty() ? nullptr : found.front();
}

/// @p path with the user's home folder in place of "~", which the shell has not replaced yet.
std::string withHome(const std::string &path)
{
    return path.compare(0, 2, "~/") == 0 ? QDir::homePath().toStdString() + path.substr(1) : path;
}

/// Returns whether @p word can be a value of the argument @p name, such as "STORAGE" or "FILE...".
bool accepts(const QString &name, const std::string &word)
{
    return name != "STORAGE" || isStorage(word);
}

/// The names of the arguments that can follow @p given, the last one of @p names first.
QStringList nextOf(const QStringList &names, const std::vector<std::string> &given)
{
    QVector<bool> isNext(names.size() + 1); // for each name, and the end
    isNext[0] = true;
    for (const std::string &word : given) {
        QVector<bool> after(names.size() + 1);
        for (int i = 0; i < names.size(); ++i) {
            const bool isAccepted = isNext[i] && accepts(names[i], word);
            after[i] = after[i] || (isAccepted && names[i].endsWith("..."));
            after[i + 1] = isAccepted;
        }
        isNext = after;
    }
    QStringList found;
    for (int i = names.size() - 1; i >= 0; --i) {
        if (isNext[i])
            found.append(names[i]);
    }
    return found;
}

/// The names in /proc/partitions.
QStringList blockNames()
{
    QFile file("/proc/partitions");
    QStringList names;
    if (!file.open(QIODevice::ReadOnly))
        return names;
    const QList<QByteArray> lines = file.readAll().split('\n').mid(2); // without the heading
    for (const QByteArray &line : lines)
        names.append(QString::fromUtf8(line.simplified().split(' ').value(3)));
    names.removeAll(QString());
    return names;
}

} // namespace

Completion::Completion(const CLI::App &app, std::vector<std::string> words, FoldersOf foldersOf)
    : mApp(app), mFoldersOf(std::move(foldersOf))
{
    if (!words.empty()) {
        mStart = QFile::decodeName(words.back().c_str());
        words.pop_back();
    }
    for (const std::string &word : words)
        read(word);
}

void Completion::read(const std::string &word)
{
    if (mOption) {
        if (mApp.get_option_no_throw(mOption->get_name()))
            mCommonOptions.push_back(mOption->get_name() + "=" + withHome(word));
        mOption = nullptr;
    } else if (mHasOnlyArguments || !isOption(word)) {
        if (mHasCommand)
            mArguments.push_back(word);
        else
            mCommand = commandNamed(mApp, word);
        mHasCommand = true;
    } else if (word == "--") {
        mHasOnlyArguments = true;
    } else {
        readOption(word);
    }
}

void Completion::readOption(const std::string &word)
{
    const size_t end = word.find('=');
    const CLI::Option *option = find(word.substr(0, end));
    if (!option || !takesValue(*option))
        return;
    mOption = option;
    if (end != std::string::npos)
        read(word.substr(end + 1));
}

const CLI::Option *Completion::find(const std::string &option) const
{
    const CLI::Option *own = mCommand ? mCommand->get_option_no_throw(option) : nullptr;
    return own ? own : mApp.get_option_no_throw(option);
}

QByteArray Completion::lines()
{
    const bool isOptionStart = mStart.startsWith('-') && !mHasOnlyArguments;
    if (!mOption && isOptionStart && mStart.contains('=')) {
        readOption(mStart.section('=', 0, 0).toStdString());
        mStart = mStart.section('=', 1);
        if (!mOption)
            return mPaths + "\n";
    }
    if (mOption)
        addValuesOf(*mOption);
    else if (isOptionStart)
        addOptions();
    else if (!mHasCommand)
        addCommands();
    else if (mCommand)
        addArguments();
    return mPaths + "\n" + mLines.join();
}

void Completion::addCommands()
{
    for (const CLI::App *command : mApp.get_subcommands([](const CLI::App *) { return true; }))
        add(QString::fromStdString(command->get_name()), summaryOf(command->get_description()));
}

/// The options of the command come first.
void Completion::addOptions()
{
    for (const CLI::App *app : {mCommand, &mApp}) {
        if (!app)
            continue;
        for (const CLI::Option *option : app->get_options()) {
            if (option->nonpositional() && (app == &mApp || option != mCommand->get_help_ptr()))
                add(QString::fromStdString(option->get_name()), summaryOf(option->get_description()));
        }
    }
}

QStringList Completion::argumentNames() const
{
    QStringList names;
    for (const CLI::Option *option : mCommand->get_options()) {
        if (option->get_positional())
            names += QString::fromStdString(option->get_name(true)).split(' ');
    }
    return names;
}

void Completion::addArguments()
{
    const QStringList names = nextOf(argumentNames(), mArguments);
    for (const QString &name : names) {
        const QStringList kinds = QString(name).remove("...").split('|');
        for (const QString &kind : kinds)
            addKind(kind);
    }
}

void Completion::addValuesOf(const CLI::Option &option)
{
    const QString name = QString::fromStdString(option.get_name());
    const std::string &text = option.get_option_text(); // shown in place of the type
    const QString type = QString::fromStdString(text.empty() ? option.get_type_name() : text);
    if (name == "--input")
        addKind("FILE");
    else if (name == "--folder")
        addKind("FOLDER");
    else if (name.endsWith("-block"))
        addKind("BLOCK");
    else if (type == type.toLower()) // "dcim|other|all"
        addAll(type.split('|', Qt::SkipEmptyParts));
    else
        addKind(type);
}

std::string Completion::lastStorage() const
{
    const auto found = std::find_if(mArguments.rbegin(), mArguments.rend(), isStorage);
    return found == mArguments.rend() ? std::string() : *found;
}

/// Each storage device has an option with its name.
void Completion::addStorages()
{
    for (const CLI::Option *option : mApp.get_options()) {
        const std::string name = option->get_single_name();
        if (isStorage(name))
            add(QString::fromStdString(name), summaryOf(option->get_description()));
    }
}

void Completion::addKind(const QString &kind)
{
    if (kind == "STORAGE") {
        addStorages();
    } else if (kind == "FOLDER") {
        addAll(mFoldersOf(mCommonOptions, lastStorage()));
    } else if (kind == "BLOCK") {
        addAll(blockNames());
    } else if (kind == "TYPE") {
        addAll(extensions());
    } else if (kind == "FILE" || kind == "PATH") {
        mPaths = "files";
    } else if (kind == "DIR" || kind == "DIRECTORY") {
        mPaths = "directories";
    }
}

void Completion::addAll(const QStringList &candidates)
{
    for (const QString &candidate : candidates)
        add(candidate);
}

void Completion::add(const QString &candidate, const QString &description)
{
    // A line cannot contain a name with, for example, a line feed.
    if (candidate.startsWith(mStart) && candidate == printable(candidate))
        mLines.append(QFile::encodeName(candidate) + '\t' + description.toUtf8() + '\n');
}
