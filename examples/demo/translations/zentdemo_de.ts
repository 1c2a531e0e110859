<?xml version="1.0" encoding="utf-8"?>
<!DOCTYPE TS>
<TS version="2.1" language="de_DE">
<context>
    <name>DemoPlugin</name>
    <message>
        <source>Opening the main window</source>
        <translation>Hauptfenster wird geöffnet</translation>
    </message>
</context>
<context>
    <name>DemoWindow</name>
    <message>
        <source>Zent Demo</source>
        <translation>Zent-Demo</translation>
    </message>
    <message>
        <source>Ready</source>
        <translation>Bereit</translation>
    </message>
    <message>
        <source>The clock or the time zone changed at %1</source>
        <translation>Uhrzeit oder Zeitzone wurden um %1 geändert</translation>
    </message>
    <message>
        <source>Start-up</source>
        <translation>Programmstart</translation>
    </message>
    <message>
        <source>Command line:</source>
        <translation>Befehlszeile:</translation>
    </message>
    <message>
        <source>Configuration:</source>
        <translation>Konfiguration:</translation>
    </message>
    <message>
        <source>Application key:</source>
        <translation>Anwendungsschlüssel:</translation>
    </message>
    <message>
        <source>Application name:</source>
        <translation>Anwendungsname:</translation>
    </message>
    <message>
        <source>Language:</source>
        <translation>Sprache:</translation>
    </message>
    <message>
        <source>Locale:</source>
        <translation>Gebietsschema:</translation>
    </message>
    <message>
        <source>Splash time-out:</source>
        <translation>Startbild-Anzeigedauer:</translation>
    </message>
    <message>
        <source>%1 ms</source>
        <translation>%1 ms</translation>
    </message>
    <message>
        <source>Plug-ins:</source>
        <translation>Erweiterungen:</translation>
    </message>
    <message>
        <source>Starts:</source>
        <translation>Starts:</translation>
    </message>
    <message>
        <source>Configuration read at start-up (machine view)</source>
        <translation>Beim Start gelesene Konfiguration (Rechneransicht)</translation>
    </message>
    <message>
        <source>Name</source>
        <translation>Name</translation>
    </message>
    <message>
        <source>Value</source>
        <translation>Wert</translation>
    </message>
    <message>
        <source>Your settings (user view)</source>
        <translation>Ihre Einstellungen (Benutzeransicht)</translation>
    </message>
    <message>
        <source>Greeting:</source>
        <translation>Begrüßung:</translation>
    </message>
    <message>
        <source>Volume:</source>
        <translation>Lautstärke:</translation>
    </message>
    <message>
        <source>Show tips at start</source>
        <translation>Tipps beim Start zeigen</translation>
    </message>
    <message>
        <source>&amp;Save</source>
        <translation>&amp;Speichern</translation>
    </message>
    <message>
        <source>&amp;Quit</source>
        <translation>&amp;Beenden</translation>
    </message>
    <message>
        <source>Hello</source>
        <translation>Hallo</translation>
    </message>
    <message>
        <source>Saved to %1</source>
        <translation>Gespeichert in %1</translation>
    </message>
</context>
<context>
    <name>ThreadingDemo</name>
    <message>
        <source>Threads and programs</source>
        <translation>Threads und Programme</translation>
    </message>
    <message>
        <source>Waiting for the worker thread</source>
        <translation>Warte auf den Arbeits-Thread</translation>
    </message>
    <message>
        <source>Worker thread:</source>
        <translation>Arbeits-Thread:</translation>
    </message>
    <message>
        <source>Start</source>
        <translation>Starten</translation>
    </message>
    <message>
        <source>Program:</source>
        <translation>Programm:</translation>
    </message>
    <message>
        <source>No program started</source>
        <translation>Kein Programm gestartet</translation>
    </message>
    <message>
        <source>%1 (blocking calls: %2, non-blocking calls: %3)</source>
        <translation>%1 (blockierende Aufrufe: %2, nicht blockierende Aufrufe: %3)</translation>
    </message>
    <message>
        <source>Started %1 (process %2)</source>
        <translation>%1 gestartet (Prozess %2)</translation>
    </message>
    <message>
        <source>Could not start %1</source>
        <translation>%1 konnte nicht gestartet werden</translation>
    </message>
</context>
</TS>
