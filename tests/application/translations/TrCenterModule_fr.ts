<?xml version="1.0" encoding="utf-8"?>
<!DOCTYPE TS>
<TS version="2.1" language="fr_FR">
<context>
    <name>TrCenterModule</name>
    <message>
        <source>Settings</source>
        <translation>Paramètres</translation>
    </message>
    <message>
        <source>Open</source>
        <comment>verb</comment>
        <translation>Ouvrir</translation>
    </message>
    <message>
        <source>Open</source>
        <comment>adjective</comment>
        <translation>Ouvert</translation>
    </message>
</context>
</TS>
