<?xml version="1.0" encoding="utf-8"?>
<!DOCTYPE TS>
<TS version="2.1" language="de" sourcelanguage="en">
<context>
    <name>ActionBar</name>
    <message>
        <source>Copy</source>
        <translation>Kopieren</translation>
    </message>
    <message>
        <source>Unprotect</source>
        <translation>Schutz aufheben</translation>
    </message>
    <message>
        <source>Protect</source>
        <translation>Schützen</translation>
    </message>
    <message>
        <source>Delete</source>
        <translation>Löschen</translation>
    </message>
</context>
<context>
    <name>Catalog</name>
    <message numerus="yes">
        <source>%n recording(s) deleted</source>
        <translation>
            <numerusform>%n Aufnahme gelöscht</numerusform>
            <numerusform>%n Aufnahmen gelöscht</numerusform>
        </translation>
    </message>
    <message numerus="yes">
        <source>%n recording(s) cannot be deleted</source>
        <translation>
            <numerusform>%n Aufnahme kann nicht gelöscht werden</numerusform>
            <numerusform>%n Aufnahmen können nicht gelöscht werden</numerusform>
        </translation>
    </message>
</context>
<context>
    <name>Copier</name>
    <message>
        <source>The storage device has no numbers left</source>
        <translation>Auf dem Speicher sind keine Nummern mehr frei</translation>
    </message>
    <message>
        <source>Cancelled</source>
        <translation>Abgebrochen</translation>
    </message>
    <message numerus="yes">
        <source>%n recording(s) copied</source>
        <translation>
            <numerusform>%n Aufnahme kopiert</numerusform>
            <numerusform>%n Aufnahmen kopiert</numerusform>
        </translation>
    </message>
    <message>
        <source>%1 has been removed</source>
        <translation>%1 wurde entfernt</translation>
    </message>
</context>
<context>
    <name>CopyDialog</name>
    <message>
        <source>Copy %1 to</source>
        <translation>%1 kopieren nach</translation>
    </message>
    <message numerus="yes">
        <source>Copy %n recording(s) to</source>
        <translation>
            <numerusform>%n Aufnahme kopieren nach</numerusform>
            <numerusform>%n Aufnahmen kopieren nach</numerusform>
        </translation>
    </message>
    <message>
        <source>%1 free</source>
        <translation>%1 frei</translation>
    </message>
    <message>
        <source>Cancel</source>
        <translation>Abbrechen</translation>
    </message>
</context>
<context>
    <name>CopyStatus</name>
    <message>
        <source>Copying…  %1%</source>
        <translation>Wird kopiert …  %1 %</translation>
    </message>
</context>
<context>
    <name>DataPanel</name>
    <message>
        <source>Resolution</source>
        <translation>Auflösung</translation>
    </message>
    <message>
        <source>Size</source>
        <translation>Größe</translation>
    </message>
    <message>
        <source>Created</source>
        <translation>Erstellt</translation>
    </message>
    <message>
        <source>Modified</source>
        <translation>Geändert</translation>
    </message>
    <message>
        <source>Files</source>
        <translation>Dateien</translation>
    </message>
</context>
<context>
    <name>DeleteQuestion</name>
    <message>
        <source>Delete %1?</source>
        <translation>%1 löschen?</translation>
    </message>
    <message numerus="yes">
        <source>Delete %n recording(s)?</source>
        <translation>
            <numerusform>%n Aufnahme löschen?</numerusform>
            <numerusform>%n Aufnahmen löschen?</numerusform>
        </translation>
    </message>
    <message>
        <source>This cannot be undone.</source>
        <translation>Das lässt sich nicht rückgängig machen.</translation>
    </message>
    <message>
        <source>Keep</source>
        <translation>Behalten</translation>
    </message>
    <message>
        <source>Delete</source>
        <translation>Löschen</translation>
    </message>
</context>
<context>
    <name>DeviceCard</name>
    <message>
        <source>Not inserted</source>
        <translation>Nicht eingesetzt</translation>
    </message>
    <message>
        <source>Write-protected</source>
        <translation>Schreibgeschützt</translation>
    </message>
    <message>
        <source>%1 free of %2</source>
        <translation>%1 von %2 frei</translation>
    </message>
</context>
<context>
    <name>HomePage</name>
    <message>
        <source>Recordings</source>
        <translation>Aufnahmen</translation>
    </message>
    <message>
        <source>No recordings</source>
        <translation>Keine Aufnahmen</translation>
    </message>
    <message>
        <source>Your recordings will appear here.</source>
        <translation>Hier erscheint, was Sie aufnehmen.</translation>
    </message>
    <message>
        <source>Insert the storage device to see its recordings.</source>
        <translation>Setzen Sie den Datenträger ein, um seine Aufnahmen zu sehen.</translation>
    </message>
</context>
<context>
    <name>Main</name>
    <message>
        <source>Recordings</source>
        <translation>Aufnahmen</translation>
    </message>
</context>
<context>
    <name>ObjectsPage</name>
    <message numerus="yes">
        <source>%n selected</source>
        <translation>
            <numerusform>%n ausgewählt</numerusform>
            <numerusform>%n ausgewählt</numerusform>
        </translation>
    </message>
    <message>
        <source>Tap recordings to select them</source>
        <translation>Aufnahmen zum Auswählen berühren</translation>
    </message>
    <message numerus="yes">
        <source>%n recording(s)</source>
        <translation>
            <numerusform>%n Aufnahme</numerusform>
            <numerusform>%n Aufnahmen</numerusform>
        </translation>
    </message>
    <message>
        <source>Select</source>
        <translation>Auswählen</translation>
    </message>
    <message>
        <source>Loading…</source>
        <translation>Wird geladen …</translation>
    </message>
    <message>
        <source>No recordings</source>
        <translation>Keine Aufnahmen</translation>
    </message>
</context>
<context>
    <name>ViewPage</name>
    <message>
        <source>%1 of %2</source>
        <translation>%1 von %2</translation>
    </message>
    <message>
        <source>Details</source>
        <translation>Daten</translation>
    </message>
</context>
<context>
    <name>Viewer</name>
    <message>
        <source>%1 is ready</source>
        <translation>%1 ist bereit</translation>
    </message>
    <message>
        <source>%1 has been removed</source>
        <translation>%1 wurde entfernt</translation>
    </message>
</context>
<context>
    <name>ViewerScreen</name>
    <message>
        <source>Protected recordings cannot be deleted</source>
        <translation>Geschützte Aufnahmen können nicht gelöscht werden</translation>
    </message>
    <message>
        <source>The storage device is write-protected</source>
        <translation>Der Speicher ist schreibgeschützt</translation>
    </message>
</context>
<context>
    <name>reason</name>
    <message>
        <source>The storage device is full</source>
        <translation>Der Speicher ist voll</translation>
    </message>
    <message>
        <source>The storage device is write-protected</source>
        <translation>Der Speicher ist schreibgeschützt</translation>
    </message>
    <message>
        <source>The recording no longer exists</source>
        <translation>Die Aufnahme ist nicht mehr vorhanden</translation>
    </message>
    <message>
        <source>The storage device is not responding</source>
        <translation>Der Speicher antwortet nicht</translation>
    </message>
</context>
<context>
    <name>storage</name>
    <message>
        <source>Internal memory</source>
        <translation>Interner Speicher</translation>
    </message>
    <message>
        <source>SD card</source>
        <translation>SD-Karte</translation>
    </message>
    <message>
        <source>USB storage</source>
        <translation>USB-Speicher</translation>
    </message>
</context>
</TS>
