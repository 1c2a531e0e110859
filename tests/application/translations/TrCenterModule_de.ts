<?xml version="1.0" encoding="utf-8"?>
<!DOCTYPE TS>
<TS version="2.1" language="de_DE">
<context>
    <name>TrCenterModule</name>
    <message>
        <source>Settings</source>
        <translation>Einstellungen</translation>
    </message>
    <message>
        <source>Open</source>
        <comment>verb</comment>
        <translation>Öffnen</translation>
    </message>
    <message>
        <source>Open</source>
        <comment>adjective</comment>
        <translation>Offen</translation>
    </message>
</context>
</TS>
