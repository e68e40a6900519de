<?xml version="1.0" encoding="utf-8"?>
<!DOCTYPE TS>
<TS version="2.1" language="en" sourcelanguage="en">
<context>
    <name>Catalog</name>
    <message numerus="yes">
        <source>%n recording(s) deleted</source>
        <translation>
            <numerusform>%n recording deleted</numerusform>
            <numerusform>%n recordings deleted</numerusform>
        </translation>
    </message>
    <message numerus="yes">
        <source>%n recording(s) cannot be deleted</source>
        <translation>
            <numerusform>%n recording cannot be deleted</numerusform>
            <numerusform>%n recordings cannot be deleted</numerusform>
        </translation>
    </message>
</context>
<context>
    <name>Copier</name>
    <message numerus="yes">
        <source>%n recording(s) copied</source>
        <translation>
            <numerusform>%n recording copied</numerusform>
            <numerusform>%n recordings copied</numerusform>
        </translation>
    </message>
</context>
<context>
    <name>CopyDialog</name>
    <message numerus="yes">
        <source>Copy %n recording(s) to</source>
        <translation>
            <numerusform>Copy %n recording to</numerusform>
            <numerusform>Copy %n recordings to</numerusform>
        </translation>
    </message>
</context>
<context>
    <name>DeleteQuestion</name>
    <message numerus="yes">
        <source>Delete %n recording(s)?</source>
        <translation>
            <numerusform>Delete %n recording?</numerusform>
            <numerusform>Delete %n recordings?</numerusform>
        </translation>
    </message>
</context>
<context>
    <name>ObjectsPage</name>
    <message numerus="yes">
        <source>%n selected</source>
        <translation>
            <numerusform>%n selected</numerusform>
            <numerusform>%n selected</numerusform>
        </translation>
    </message>
    <message numerus="yes">
        <source>%n recording(s)</source>
        <translation>
            <numerusform>%n recording</numerusform>
            <numerusform>%n recordings</numerusform>
        </translation>
    </message>
</context>
</TS>
