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
    <name>DemoConfigurationsMenu</name>
    <message>
        <source>&amp;Configurations</source>
        <translation>&amp;Konfigurationen</translation>
    </message>
    <message>
        <source>&amp;Save settings as...</source>
        <translation>Einstellungen &amp;speichern unter...</translation>
    </message>
    <message>
        <source>S&amp;witch to</source>
        <translation>&amp;Wechseln zu</translation>
    </message>
    <message>
        <source>&amp;Rename...</source>
        <translation>&amp;Umbenennen...</translation>
    </message>
    <message>
        <source>&amp;Rename &quot;%1&quot;...</source>
        <translation>&quot;%1&quot; &amp;umbenennen...</translation>
    </message>
    <message>
        <source>&amp;Delete</source>
        <translation>&amp;Löschen</translation>
    </message>
    <message>
        <source>&amp;Delete &quot;%1&quot;</source>
        <translation>&quot;%1&quot; &amp;löschen</translation>
    </message>
    <message>
        <source>Save settings as</source>
        <translation>Einstellungen speichern unter</translation>
    </message>
    <message>
        <source>Name:</source>
        <translation>Name:</translation>
    </message>
    <message>
        <source>Rename configuration</source>
        <translation>Konfiguration umbenennen</translation>
    </message>
    <message>
        <source>New name:</source>
        <translation>Neuer Name:</translation>
    </message>
    <message>
        <source>Delete configuration</source>
        <translation>Konfiguration löschen</translation>
    </message>
    <message>
        <source>Delete the configuration &quot;%1&quot;?</source>
        <translation>Die Konfiguration &quot;%1&quot; löschen?</translation>
    </message>
    <message>
        <source>Settings saved as &quot;%1&quot;.</source>
        <translation>Einstellungen als &quot;%1&quot; gespeichert.</translation>
    </message>
    <message>
        <source>The settings could not be saved as &quot;%1&quot;.</source>
        <translation>Die Einstellungen konnten nicht als &quot;%1&quot; gespeichert werden.</translation>
    </message>
    <message>
        <source>There is no configuration &quot;%1&quot;.</source>
        <translation>Es gibt keine Konfiguration &quot;%1&quot;.</translation>
    </message>
    <message>
        <source>Using the configuration &quot;%1&quot;.</source>
        <translation>Die Konfiguration &quot;%1&quot; wird verwendet.</translation>
    </message>
    <message>
        <source>The configuration &quot;%1&quot; could not be used.</source>
        <translation>Die Konfiguration &quot;%1&quot; konnte nicht verwendet werden.</translation>
    </message>
    <message>
        <source>There is a configuration &quot;%1&quot; already.</source>
        <translation>Es gibt bereits eine Konfiguration &quot;%1&quot;.</translation>
    </message>
    <message>
        <source>The configuration &quot;%1&quot; is now called &quot;%2&quot;.</source>
        <translation>Die Konfiguration &quot;%1&quot; heißt jetzt &quot;%2&quot;.</translation>
    </message>
    <message>
        <source>The configuration &quot;%1&quot; could not be renamed.</source>
        <translation>Die Konfiguration &quot;%1&quot; konnte nicht umbenannt werden.</translation>
    </message>
    <message>
        <source>The configuration &quot;%1&quot; is deleted; your own settings are shown.</source>
        <translation>Die Konfiguration &quot;%1&quot; ist gelöscht; Ihre eigenen Einstellungen werden angezeigt.</translation>
    </message>
    <message>
        <source>The configuration &quot;%1&quot; could not be deleted.</source>
        <translation>Die Konfiguration &quot;%1&quot; konnte nicht gelöscht werden.</translation>
    </message>
    <message>
        <source>&quot;%1&quot; cannot name a configuration: use letters, digits, &quot;_&quot;, &quot;-&quot; and &quot;.&quot;.</source>
        <translation>&quot;%1&quot; kann keine Konfiguration benennen: erlaubt sind Buchstaben, Ziffern, &quot;_&quot;, &quot;-&quot; und &quot;.&quot;.</translation>
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
