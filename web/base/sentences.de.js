/**
 * Was das Programm sagt, auf Deutsch: links seine Sätze, ohne Punkt am Ende, rechts die Seite. Eine Stelle {who2} ist
 * einer der PARTS von "who"; {number} ist eine Zahl, {reason} wieder ein Satz, {text} sind Worte von irgendwem.
 */

export const PARTS = {
  amount: { "1 {possible}": "1 {possible}", "{number} {several}": "{number} {several}" },
  answer: { coming: "unterwegs", seen: "gesehen", false_alarm: "Fehlalarm", resolved: "erledigt" },
  area: { "bed {number}": "Bett {number}", "exclusion area {number}": "Ausschlussbereich {number}" },
  before: {
    "was in a bed": "war diese Person in einem Bett",
    "was in an exclusion area": "war diese Person in einem Ausschlussbereich",
    "could not be judged yet": "war diese Person noch nicht zu beurteilen",
    stood: "stand diese Person",
    sat: "saß diese Person",
    "reached the picture's edge": "reichte diese Person bis an den Bildrand",
    moved: "bewegte sich diese Person",
    'was ruled out by "{text}"': "war ein Sturz durch „{text}“ ausgeschlossen",
  },
  but: {
    "is in a bed": "ist aber in einem Bett",
    "is in an exclusion area": "ist aber in einem Ausschlussbereich",
    "cannot be judged": "ist aber nicht zu beurteilen",
    stands: "gilt aber als stehend",
    sits: "gilt aber als sitzend",
    "reaches the picture's edge, where no fall is told": "reicht aber bis an den Bildrand, wo kein Sturz gemeldet wird",
    'is ruled out by "{text}"': "ein Sturz ist aber durch „{text}“ ausgeschlossen",
  },
  by: { somebody: "jemand", "{text}": "{text}" },
  dark: { "above and below": "oben und unten", "left and right": "links und rechts" },
  edge: {
    "{number} px inside its outline": "{number} Pixel innerhalb des Umrisses",
    "{number} px outside its outline": "{number} Pixel außerhalb des Umrisses",
    "on its outline": "genau auf dem Umriss",
  },
  enough: { "too slow": "zu langsam", "fast enough": "schnell genug" },
  length: { "{number} m": "{number} m", "{number} px": "{number} Pixel" },
  place: {
    "shoulders are {edge}": "die Schultern {edge}",
    "shoulder is {edge}": "die Schulter {edge}",
    "head is {edge}": "der Kopf {edge}",
    "place where last seen is {edge}": "zuletzt zu sehen {edge}",
  },
  possible: { "possible person": "mögliche Person" },
  several: { "possible persons": "mögliche Personen" },
  phrase: {
    "Bad Request": "falsche Anfrage",
    Unauthorized: "nicht angemeldet",
    Forbidden: "nicht erlaubt",
    "Not Found": "nicht gefunden",
    "Method Not Allowed": "so nicht erlaubt",
    "Not Acceptable": "nicht angenommen",
    Conflict: "passt nicht zum Stand",
    "Request Entity Too Large": "Anfrage zu groß",
    "Too Many Requests": "zu viele Anfragen",
    "Internal Server Error": "innerer Fehler",
    "Bad Gateway": "Fehler dahinter",
    "Service Unavailable": "gerade nicht möglich",
  },
  rate: {
    "no rate told": "keine Rate genannt",
    "{number} pictures a second told": "{number} Bilder je Sekunde genannt",
  },
  came: {
    "{number} came": "{number} kamen",
    "one picture came": "ein Bild kam",
    "{number} came: fewer than the two that the program looks at":
      "{number} kamen: weniger als die zwei, die das Programm ansieht",
  },
  codec: { "a codec that is not told": "Kodierung nicht genannt", "{text}": "{text}" },
  role: { carer: "Pflegekraft", nurse: "Pflegefachkraft", installer: "Einrichter" },
  rule: {
    "is not a parameter; allowed are those of package/manifest.json":
      "gibt es nicht; erlaubt sind die aus package/manifest.json",
    'must be "true" or "false"': "muss „true“ oder „false“ sein",
    "must be a number, as text": "muss eine Zahl sein, als Text",
    "must be a number from {number} to {number2}": "muss eine Zahl von {number} bis {number2} sein",
    "must be a whole number from {number} to {number2}": "muss eine ganze Zahl von {number} bis {number2} sein",
  },
  span: { "{number} s": "{number} s", "{number} s or more": "{number} s oder länger" },
  what: {
    camera: "Adresse",
    address: "Adresse",
    user: "Benutzername",
    password: "Passwort",
    certificate: "Zertifikat",
  },
  who: { "person {number}": "Person {number}", "skeleton {number}": "Skelett {number}", another: "eine andere" },
};

export default {
  // Warum ein Ereignis begann oder endete, und was jetzt zu sehen ist.
  "the event is switched off in the settings": "das Ereignis ist in den Einstellungen ausgeschaltet",
  "no bed area is in use": "kein Bettbereich ist eingeschaltet",
  "the cycle failed: nothing was decided, and all stays as it was":
    "das Bild konnte nicht ausgewertet werden: nichts wurde entschieden, alles bleibt, wie es war",
  "the trace tells nothing about it": "die Aufzeichnung sagt nichts darüber",
  "no cycle of the trace tells why": "kein Bild der Aufzeichnung sagt, warum",
  "the trace ends before the cycle that tells why": "die Aufzeichnung endet vor dem Bild, das sagt, warum",
  "nobody is tracked": "niemand wird verfolgt",
  "nobody who is tracked is in it": "niemand, der verfolgt wird, ist darin",
  nothing: "nichts",

  "{who} stands": "{who} steht",
  "{who} sits": "{who} sitzt",
  "{who} is in {area}": "{who} ist in {area}",
  "{who} is in {area}: the {place}": "{who} ist in {area}: {place}",
  "{who} is in {area}, where no fall is told": "{who} ist in {area}, wo kein Sturz gemeldet wird",
  "{who} is in {area}: the {place}, where no fall is told": "{who} ist in {area}, wo kein Sturz gemeldet wird: {place}",
  "{who} is outside the beds, known for {span}, and judged from {span2} on":
    "{who} ist außerhalb der Betten, seit {span} bekannt und wird ab {span2} beurteilt",
  "{who} is outside the beds, and whether this person stands or lies cannot be told":
    "{who} ist außerhalb der Betten; ob diese Person steht oder liegt, ist nicht zu sagen",
  "{who} lies on the floor": "{who} liegt auf dem Boden",
  "{who} lies on the floor but {but}": "{who} liegt auf dem Boden, {but}",
  "{who} lies still on the floor, for {span} of {span2} so far":
    "{who} liegt still auf dem Boden, bisher {span} von {span2}",
  "before that this person {before}": "davor {before}",
  "{who} has lain still on the floor for {span}": "{who} liegt seit {span} still auf dem Boden",
  "{who} has lain still on the floor for {span} ({span2} make a fall)":
    "{who} liegt seit {span} still auf dem Boden (ab {span2} ist es ein Sturz)",
  "over the last {span} the body moved too much": "in den letzten {span} bewegte sich der Körper zu viel",
  "over the last {span} the body moved on average by {number} % of its height a second (limit {number2} %)":
    "in den letzten {span} bewegte sich der Körper im Mittel um {number} % seiner Höhe je Sekunde (Grenze {number2} %)",
  "the torso looks {number} times as long as the legs (less than {number2} counts as lying)":
    "der Rumpf sieht {number}-mal so lang aus wie die Beine (weniger als {number2} gilt als Liegen)",
  "the torso looked {number} times as long as the legs (less than {number2} counts as lying)":
    "der Rumpf sah {number}-mal so lang aus wie die Beine (weniger als {number2} gilt als Liegen)",
  "the shoulders are {length} from where they would be if upright above these feet (limit {length2})":
    "die Schultern sind {length} von dort entfernt, wo sie aufrecht über diesen Füßen wären (Grenze {length2})",
  "the shoulders were {length} from where they would be if upright above these feet (limit {length2})":
    "die Schultern waren {length} von dort entfernt, wo sie aufrecht über diesen Füßen wären (Grenze {length2})",
  "the shoulders are {length} from where they would be if upright above these feet (more than {length2} would count as lying)":
    "die Schultern sind {length} von dort entfernt, wo sie aufrecht über diesen Füßen wären (mehr als {length2} gälte als Liegen)",
  "the shoulders were {length} from where they would be if upright above these feet (more than {length2} would count as lying)":
    "die Schultern waren {length} von dort entfernt, wo sie aufrecht über diesen Füßen wären (mehr als {length2} gälte als Liegen)",

  "{who} is not seen": "{who} ist nicht zu sehen",
  "{who} is no longer seen": "{who} ist nicht mehr zu sehen",
  "{who} is not tracked any more": "{who} wird nicht mehr verfolgt",
  "{who} is not seen, and counted where last seen":
    "{who} ist nicht zu sehen und wird dort gezählt, wo sie zuletzt zu sehen war",
  "{who} is not seen, and counted where last seen for up to {span}":
    "{who} ist nicht zu sehen und wird bis zu {span} lang dort gezählt, wo sie zuletzt zu sehen war",
  "{who} has not been seen for {span}": "{who} ist seit {span} nicht zu sehen",
  "{who} has not been seen for {span}, and counted where last seen":
    "{who} ist seit {span} nicht zu sehen und wird dort gezählt, wo sie zuletzt zu sehen war",
  "{who} has not been seen for {span}, and counted where last seen for up to {span2}":
    "{who} ist seit {span} nicht zu sehen und wird bis zu {span2} lang dort gezählt, wo sie zuletzt zu sehen war",
  "not seen for {span}, and counted where last seen":
    "seit {span} nicht zu sehen und wird dort gezählt, wo sie zuletzt zu sehen war",
  "not seen for {span}, and counted where last seen for up to {span2}":
    "seit {span} nicht zu sehen und wird bis zu {span2} lang dort gezählt, wo sie zuletzt zu sehen war",
  "{who} has not been seen for more than {span} and is forgotten":
    "{who} war länger als {span} nicht zu sehen und ist vergessen",
  "{who} has not been seen for more than is allowed and is forgotten":
    "{who} war länger als erlaubt nicht zu sehen und ist vergessen",
  "last seen in {area}": "zuletzt in {area}",
  "last seen in {area}: the {place}": "zuletzt in {area}: {place}",
  "last seen in {area}, where no fall is told": "zuletzt in {area}, wo kein Sturz gemeldet wird",
  "last seen in {area}: the {place}, where no fall is told": "zuletzt in {area}, wo kein Sturz gemeldet wird: {place}",
  "last seen lying still on the floor, for {span}": "lag zuletzt {span} lang still auf dem Boden",
  "last seen lying on the floor": "lag zuletzt auf dem Boden",
  "last seen standing": "stand zuletzt",
  "last seen sitting": "saß zuletzt",
  "last seen outside the beds": "war zuletzt außerhalb der Betten",

  "{area} counts as occupied": "{area} gilt als belegt",
  "{area} counts as occupied by {who}": "{area} gilt als belegt durch {who}",
  "{area} counts as occupied by {who}, whose {place}": "{area} gilt als belegt durch {who}, {place}",
  "{area} is empty: {reason}": "{area} ist leer: {reason}",
  "{area} has been empty for {span}, and more than {span2} raise the event":
    "{area} ist seit {span} leer, und mehr als {span2} lösen das Ereignis aus",
  "{area} has been empty for only {span}, and more than {span2} raise the event":
    "{area} ist erst seit {span} leer, und mehr als {span2} lösen das Ereignis aus",
  "a bed has been empty for {span}, and more than {span2} raise the event":
    "ein Bett ist seit {span} leer, und mehr als {span2} lösen das Ereignis aus",
  "a bed has been empty for only {span}, and more than {span2} raise the event":
    "ein Bett ist erst seit {span} leer, und mehr als {span2} lösen das Ereignis aus",
  "{who} counts in {area}": "{who} zählt zu {area}",
  "the nearest is {who}, whose {place}": "am nächsten ist {who}, {place}",

  "1 {possible} inside its outline was left out: {reason}": "1 {possible} im Umriss zählte nicht: {reason}",
  "{amount} inside its outline were left out: {reason}": "{amount} im Umriss zählten nicht: {reason}",
  "{amount} scored too low: {reason}": "{amount} mit zu niedriger Bewertung: {reason}",
  "{amount} scored too low, the best of them: {reason}": "{amount} mit zu niedriger Bewertung, die beste: {reason}",
  "inside its outline {amount} scored too low: {reason}": "im Umriss {amount} mit zu niedriger Bewertung: {reason}",
  "inside its outline {amount} scored too low, the best of them: {reason}":
    "im Umriss {amount} mit zu niedriger Bewertung, die beste: {reason}",
  "score {number} under {number2}": "Bewertung {number} unter {number2}",
  "score {number} comes after one under {number2}": "Bewertung {number} kommt nach einer unter {number2}",
  "its score {number} is not above {number2}": "ihre Bewertung {number} ist nicht über {number2}",
  "neither top nor feet of a body were found": "weder das obere Ende noch die Füße eines Körpers wurden gefunden",
  "neither shoulders nor head were found": "weder Schultern noch Kopf wurden gefunden",
  "the body takes {number} % of the picture, less than {number2} %":
    "der Körper nimmt {number} % des Bildes ein, weniger als {number2} %",
  "the body takes {number} % of the picture, more than {number2} %":
    "der Körper nimmt {number} % des Bildes ein, mehr als {number2} %",
  "the body is head down in the picture that this run saw":
    "der Körper steht kopfüber in dem Bild, das dieser Durchgang sah",
  "the feet of a body upside down lie {number} px below the picture's top, less than {number2} px":
    "die Füße eines Körpers, der kopfüber ist, liegen {number} Pixel unter dem oberen Bildrand, weniger als {number2} Pixel",
  "not confirmed: the detector saw no person there": "nicht bestätigt: die Gegenprobe sah dort niemanden",
  "not confirmed: the detector's best score {number} is not above {number2}":
    "nicht bestätigt: die beste Bewertung der Gegenprobe, {number}, ist nicht über {number2}",
  "taken for the same person as {who}": "gilt als dieselbe Person wie {who}",
  "fused into {who}, who is outside": "aufgenommen in {who}, außerhalb des Umrisses",
  "{who} covers it: {number} % of the smaller box in common, more than {number2} %":
    "{who} verdeckt sie: {number} % des kleineren Rahmens gemeinsam, mehr als {number2} %",

  // Was das Programm daran hindert, gut zu achten.
  "No picture is being analysed: nobody is being watched": "Kein Bild wird ausgewertet: niemand wird überwacht",
  "This machine is too slow: pictures left out in the last minute: {number}; alarms take {number2} times as long":
    "Dieser Rechner ist zu langsam: in der letzten Minute wurden {number} Bilder ausgelassen; Alarme brauchen {number2}-mal so lang",
  "The camera sends the same moment again and again: nobody is being watched":
    "Die Kamera schickt immer wieder denselben Augenblick: niemand wird überwacht",
  "Restart the camera": "Starten Sie die Kamera neu",
  "The picture is too dark to see anybody: nobody is being watched":
    "Das Bild ist zu dunkel, um jemanden zu sehen: niemand wird überwacht",
  "Switch a light on, and look whether something covers the lens":
    "Machen Sie Licht, und sehen Sie nach, ob etwas das Objektiv verdeckt",
  "Something covers the camera's lens: nobody is being watched":
    "Etwas verdeckt das Objektiv der Kamera: niemand wird überwacht",
  "Take it away": "Nehmen Sie es weg",
  "The picture is out of focus: people are not seen reliably":
    "Das Bild ist unscharf: Menschen werden nicht zuverlässig gesehen",
  "Clean the lens, or focus the camera": "Putzen Sie das Objektiv, oder stellen Sie die Kamera scharf",
  "The camera has been moved since the floor was calibrated: beds and falls are looked for in wrong places":
    "Die Kamera wurde bewegt, seit der Boden vermessen wurde: Betten und Stürze werden an falschen Stellen gesucht",
  "Put it back, or check the floor points": "Stellen Sie sie zurück, oder prüfen Sie die Bodenpunkte",
  "The camera has given no picture since {text} ({reason}): nobody is being watched. It is tried again until it answers":
    "Die Kamera gibt seit {text} kein Bild ({reason}): niemand wird überwacht. Es wird versucht, bis sie wieder antwortet",
  "Since {text} alarms are shown but not recorded ({number} entry): {reason}":
    "Seit {text} werden Alarme gezeigt, aber nicht festgehalten ({number} Eintrag): {reason}",
  "Since {text} alarms are shown but not recorded ({number} entries): {reason}":
    "Seit {text} werden Alarme gezeigt, aber nicht festgehalten ({number} Einträge): {reason}",
  "Since {text} alarms call, but they and the answers to them are not stored ({number} waiting): {reason}":
    "Seit {text} rufen Alarme, aber sie und die Antworten darauf werden nicht gespeichert ({number} warten): {reason}",
  "Nobody outside is called meanwhile": "Außerhalb wird so lange niemand gerufen",
  "Since {text} {text2} is not reached: {reason}": "Seit {text} ist {text2} nicht zu erreichen: {reason}",
  "The floor calibration cannot be renewed: the camera's lens does not answer":
    "Der Boden kann nicht neu kalibriert werden: das Objektiv der Kamera antwortet nicht",
  "The page's certificate ends on {text} and cannot be renewed; then browsers and telephones refuse the page":
    "Das Zertifikat der Seite läuft am {text} ab und lässt sich nicht erneuern; dann weisen Browser und Telefone die Seite ab",

  // Der Datenträger.
  "the disk does not answer": "der Datenträger antwortet nicht",
  "{text}: is not a file": "{text}: ist keine Datei",
  "{text}: is in use by another program": "{text}: wird von einem anderen Programm benutzt",
  "{text}: is larger than {number} bytes": "{text}: ist größer als {number} Bytes",
  "{text}: cannot be opened: {reason}": "{text}: lässt sich nicht öffnen: {reason}",
  "{text}: cannot be read: {reason}": "{text}: lässt sich nicht lesen: {reason}",
  "{text}: cannot be written: {reason}": "{text}: lässt sich nicht schreiben: {reason}",
  "{text}: cannot be written to disk: {reason}": "{text}: kommt nicht auf den Datenträger: {reason}",
  "{text}: cannot be replaced: {reason}": "{text}: lässt sich nicht ersetzen: {reason}",
  "{text}: cannot be removed: {reason}": "{text}: lässt sich nicht entfernen: {reason}",
  "{text}: the old content cannot be kept: {reason}": "{text}: der alte Inhalt lässt sich nicht aufheben: {reason}",
  "{text}: a torn line cannot be cut off: {reason}":
    "{text}: eine unvollständige Zeile lässt sich nicht abschneiden: {reason}",
  "{text}: line {number} is damaged and it cannot be put aside: {reason}":
    "{text}: Zeile {number} ist beschädigt, und die Datei lässt sich nicht beiseitelegen: {reason}",
  "{text}: its numbers are above those of this run and it cannot be put aside: {reason}":
    "{text}: ihre Nummern liegen über denen dieses Laufs, und sie lässt sich nicht beiseitelegen: {reason}",
  "{text}: is another file than before and it cannot be put aside: {reason}":
    "{text}: dort liegt eine andere Datei als zuvor, und sie lässt sich nicht beiseitelegen: {reason}",
  "{text} cannot be used: {reason}": "{text} ist nicht zu gebrauchen: {reason}",
  "No space left on device": "der Datenträger ist voll",
  "Disk quota exceeded": "der zugeteilte Platz ist voll",
  "File too large": "die Datei ist zu groß",
  "Permission denied": "keine Berechtigung",
  "Read-only file system": "der Datenträger lässt sich nur lesen",
  "Input/output error": "Fehler des Datenträgers",
  "No such file or directory": "das gibt es nicht",
  "Is a directory": "ist ein Ordner",
  "Not a directory": "ist kein Ordner",
  "Too many open files": "zu viele offene Dateien",

  // Das Netz.
  "Connection refused": "die Verbindung wird abgewiesen",
  "Connection timed out": "keine Antwort in der vorgesehenen Zeit",
  "Socket I/O timed out": "keine Antwort in der vorgesehenen Zeit",
  "Connection reset by peer": "die Verbindung wurde abgebrochen",
  "Network is unreachable": "das Netz ist nicht zu erreichen",
  "No route to host": "kein Weg führt dorthin",
  "Host is down": "das Gerät ist nicht da",
  "Broken pipe": "die Verbindung wurde abgebrochen",
  "Name or service not known": "der Name ist nicht bekannt",
  "Temporary failure in name resolution": "Namen lassen sich gerade nicht auflösen",
  "Could not connect to {text}: {reason}": "keine Verbindung zu {text}: {reason}",
  "Could not connect: {reason}": "keine Verbindung: {reason}",
  "Error resolving “{text}”: {reason}": "„{text}“ wird nicht gefunden: {reason}",
  "Connection terminated unexpectedly": "die Verbindung wurde abgebrochen",
  "no answer within {span}": "keine Antwort innerhalb von {span}",
  "nobody whom this machine trusts vouches for its certificate":
    "niemand, dem dieser Rechner vertraut, bürgt für sein Zertifikat",
  "its certificate has expired": "sein Zertifikat ist abgelaufen",
  "its certificate is not valid yet": "sein Zertifikat gilt noch nicht",
  "its certificate is for another name": "sein Zertifikat ist auf einen anderen Namen ausgestellt",
  "its certificate cannot be believed": "seinem Zertifikat ist nicht zu glauben",

  // Warum die Kamera kein Bild gibt.
  "it does not answer yet": "sie antwortet noch nicht",
  "it has stopped sending": "sie sendet nicht mehr",
  "it sends no picture": "sie schickt kein Bild",
  "it holds no picture": "es ist kein Bild darin",
  "it has ended its stream": "sie hat ihren Bildstrom beendet",
  "its pictures come too late": "ihre Bilder kommen zu spät",
  "it cannot be closed to open it again: restart the program":
    "sie lässt sich nicht schließen, um sie neu zu öffnen: starten Sie das Programm neu",
  "it holds no picture that can be decoded here, but {text}":
    "es ist kein Bild darin, das hier dekodiert werden kann, sondern {text}",
  "GStreamer does not say why": "GStreamer sagt nicht, warum",
  "its name cannot be used": "der Name lässt sich nicht benutzen",
  "it asks for a user and a password, and no login is given":
    "sie verlangt Benutzername und Passwort, und keine sind angegeben",
  "it does not take this user with this password": "sie nimmt diesen Benutzer mit diesem Passwort nicht an",
  "it does not send its pictures over TCP": "sie schickt ihre Bilder nicht über TCP",
  "it does not send its pictures over UDP": "sie schickt ihre Bilder nicht über UDP",
  "its certificate is another than the one that was agreed on; its fingerprint is {text}":
    "ihr Zertifikat ist ein anderes als vereinbart; sein Fingerabdruck ist {text}",
  'nobody whom this machine knows vouches for its certificate; if the camera itself shows the fingerprint {text}, give that as "certificate" in its description':
    "niemand, den dieser Rechner kennt, bürgt für ihr Zertifikat; wenn die Kamera selbst den Fingerabdruck {text} zeigt, tragen Sie ihn als „certificate“ in ihre Beschreibung ein",
  "it sends {number} MB and more for one picture": "sie schickt {number} MB und mehr für ein Bild",
  "its pictures of {text} are too large: set the camera to 1920x1080 or less":
    "ihre Bilder von {text} sind zu groß: stellen Sie die Kamera auf höchstens 1920x1080",
  "it sends more than {number} pictures a second: some are left out":
    "sie schickt mehr als {number} Bilder je Sekunde: einige werden ausgelassen",
  "this machine is too slow for its pictures, and leaves some out: set the camera to fewer or smaller ones":
    "dieser Rechner ist zu langsam für ihre Bilder und lässt einige aus: stellen Sie die Kamera auf weniger oder kleinere",

  // Eine Kamera, die probiert wird.
  "its stream ends without a picture": "ihr Bildstrom endet ohne ein Bild",
  "decoding takes {number} of its {number2} cores": "das Dekodieren braucht {number} seiner {number2} Kerne",
  "This cannot be opened: {reason}": "Das lässt sich nicht öffnen: {reason}",
  "An address looks like rtsp://192.168.1.20/stream; the camera's manual or its own page names it":
    "Eine Adresse sieht aus wie rtsp://192.168.1.20/stream; das Handbuch oder die eigene Seite der Kamera nennt sie",
  "Nobody here knows a machine of this name": "Ein Gerät dieses Namens ist hier nicht bekannt",
  "Check the name's spelling, or give the camera's number, such as rtsp://192.168.1.20/stream":
    "Prüfen Sie, wie der Name geschrieben ist, oder geben Sie die Nummer der Kamera an, etwa rtsp://192.168.1.20/stream",
  "The machine is there and refuses the connection: nothing of it listens at this port":
    "Das Gerät ist da und weist die Verbindung ab: an diesem Port hört nichts",
  "Check the port, and that RTSP or HTTP is switched on in the camera's own settings":
    "Prüfen Sie den Port und ob RTSP oder HTTP in den eigenen Einstellungen der Kamera eingeschaltet ist",
  "No way leads from here to this machine: {reason}": "Kein Weg führt von hier zu diesem Gerät: {reason}",
  "Nothing answers at this address": "Unter dieser Adresse antwortet nichts",
  "Check that the camera has power, that its cable or radio is connected, and that its address is right":
    "Prüfen Sie, ob die Kamera Strom hat, ob Kabel oder Funk verbunden sind und ob die Adresse stimmt",
  "The camera shows a certificate that this machine does not believe":
    "Die Kamera zeigt ein Zertifikat, dem dieser Rechner nicht glaubt",
  "Compare its fingerprint with the one that the camera's own page shows, and name it if they are the same":
    "Vergleichen Sie seinen Fingerabdruck mit dem auf der eigenen Seite der Kamera, und nennen Sie ihn, wenn beide gleich sind",
  "SHA-256: {text}": "SHA-256: {text}",
  "What answers there does not speak TLS: {reason}": "Was dort antwortet, spricht kein TLS: {reason}",
  "Check the port, or try the address with rtsp or http in place of rtsps or https":
    "Prüfen Sie den Port, oder probieren Sie die Adresse mit rtsp oder http statt rtsps oder https",
  "The camera asks for a user name and a password (401)": "Die Kamera verlangt Benutzername und Passwort (401)",
  "Give those of a user whom the camera lets watch; the camera's own page makes one":
    "Geben Sie die von jemandem an, der bei der Kamera zusehen darf; auf ihrer eigenen Seite lässt er sich anlegen",
  "The camera refuses this user name or this password (401)":
    "Die Kamera nimmt diesen Benutzernamen oder dieses Passwort nicht an (401)",
  "Check both": "Prüfen Sie beide",
  "Some cameras refuse even the right ones for some minutes after wrong ones":
    "Manche Kameras weisen nach falschen einige Minuten lang auch die richtigen ab",
  "The camera has nothing at this path (404)": "Die Kamera hat unter diesem Pfad nichts (404)",
  "Check what stands after the host's name; the camera's manual or its own page names it":
    "Prüfen Sie, was nach dem Namen des Geräts steht; das Handbuch oder die eigene Seite der Kamera nennt es",
  "What comes from there holds no video: {reason}": "Was von dort kommt, enthält kein Video: {reason}",
  "Check the path: this may be the camera's page, its sound, or a single picture":
    "Prüfen Sie den Pfad: das kann die Seite der Kamera sein, ihr Ton oder ein einzelnes Bild",
  "The camera's pictures cannot be decoded here": "Die Bilder der Kamera lassen sich hier nicht dekodieren",
  "A decoder is missing": "Ein Dekoder fehlt",
  "Missing: {text}": "Es fehlt: {text}",
  "Install the Debian package {text}": "Installieren Sie das Debian-Paket {text}",
  "Or choose H.264 in the camera's own settings": "Oder wählen Sie H.264 in den eigenen Einstellungen der Kamera",
  "The camera takes the request and sends no picture": "Die Kamera nimmt die Anfrage an und schickt kein Bild",
  "Check that this stream is switched on, and that not too many others watch it":
    "Prüfen Sie, ob dieser Bildstrom eingeschaltet ist und ob nicht zu viele andere zusehen",
  "It cannot be watched: {reason}": "Sie lässt sich nicht benutzen: {reason}",
  "Try again; if it stays so, start the camera anew or try another of its streams":
    "Versuchen Sie es noch einmal; wenn es so bleibt, starten Sie die Kamera neu oder probieren Sie einen anderen ihrer Bildströme",
  "It sends more than this program takes: {reason}": "Sie schickt mehr, als dieses Programm annimmt: {reason}",
  "The camera's own page has the setting; many cameras have a second, smaller stream":
    "Die eigene Seite der Kamera hat die Einstellung dafür; viele Kameras haben einen zweiten, kleineren Bildstrom",
  "This machine is too slow for it: {reason}": "Dieser Rechner ist zu langsam dafür: {reason}",
  "In the camera's own settings choose a smaller picture, fewer pictures a second or H.264":
    "Wählen Sie in den eigenen Einstellungen der Kamera ein kleineres Bild, weniger Bilder je Sekunde oder H.264",
  Video: "Video",
  Way: "Weg",
  Delay: "Verzögerung",
  Shape: "Format",
  Machine: "Rechner",
  Note: "Hinweis",
  "{codec}, {text}, {rate}, {came}": "{codec}, {text}, {rate}, {came}",
  "RTSP over TCP": "RTSP über TCP",
  "RTSP over TLS": "RTSP über TLS",
  "HTTP over TLS": "HTTP über TLS",
  "RTSP over UDP: packets that a network loses tear pictures":
    "RTSP über UDP: Pakete, die ein Netz verliert, zerreißen Bilder",
  "not told by this source": "von dieser Quelle nicht genannt",
  "{number} s from capture to arrival": "{number} s von der Aufnahme bis zur Ankunft",
  "{number} s from capture to arrival: pictures older than {number2} s count as none; is the camera's clock right?":
    "{number} s von der Aufnahme bis zur Ankunft: Bilder, die älter als {number2} s sind, zählen nicht; geht die Uhr der Kamera richtig?",
  "16:9, fills the picture that is analysed": "16:9, füllt das ausgewertete Bild",
  "not 16:9, so black bars stand {dark}": "nicht 16:9, darum stehen {dark} schwarze Balken",
  "nothing is cut off": "nichts wird abgeschnitten",
  "{number} ms of processor time a picture, {number2} % of one core; this machine has {number3}: {enough}":
    "{number} ms Rechenzeit je Bild, {number2} % eines Kerns; dieser Rechner hat {number3}: {enough}",
  "The check itself has failed: it was ended, or could not be started":
    "Die Prüfung selbst ist gescheitert: sie wurde beendet oder ließ sich nicht starten",
  "Try again; the system log may say more": "Versuchen Sie es noch einmal; das Systemprotokoll sagt vielleicht mehr",
  "There is no such picture any more": "Dieses Bild gibt es nicht mehr",
  "The action is check, take_over or optics": "Die Aktion ist check, take_over oder optics",
  "Another address is being tried; it takes less than half a minute":
    "Eine andere Adresse wird gerade probiert; das dauert keine halbe Minute",
  "A recording is being played, and no camera is taken over then: start ./run --source ADDRESS":
    "Eine Aufnahme wird abgespielt; dann wird keine Kamera übernommen: starten Sie ./run --source ADRESSE",
  "A camera is being taken over just now": "Gerade wird eine Kamera übernommen",
  "Try the address once more first": "Probieren Sie die Adresse zuerst noch einmal",
  "Only a camera that can be watched is taken over": "Nur eine Kamera, die benutzt werden kann, wird übernommen",
  "The program has not begun to watch yet": "Das Programm achtet noch nicht auf den Raum",
  "The {what} is too long": "{what}: das ist zu lang",
  "The {what} holds what is no text": "{what}: darin ist etwas, das kein Text ist",
  "The camera's address is missing": "Die Adresse der Kamera fehlt",
  "An address begins with rtsp://, rtsps://, http:// or https://":
    "Eine Adresse beginnt mit rtsp://, rtsps://, http:// oder https://",
  "The address names no machine, or is not well-formed": "Die Adresse nennt kein Gerät oder ist falsch geschrieben",
  "The address names a user as well; give one of them":
    "Die Adresse nennt auch einen Benutzer; geben Sie nur einen von beiden an",
  "There is a password without a user name": "Das Passwort steht ohne Benutzernamen da",
  "A certificate is 64 hexadecimal digits, for rtsps and https only":
    "Ein Zertifikat sind 64 hexadezimale Ziffern, nur für rtsps und https",

  // Einstellungen.
  "Nothing was changed: {reason}": "Nichts wurde geändert: {reason}",
  '"{text}" is read at a start alone: start with ./run --settings FILE, or leave it out':
    "„{text}“ wird nur beim Start gelesen: starten Sie mit ./run --settings DATEI, oder lassen Sie es weg",
  '"{text}" must be a text of at most {number} bytes': "„{text}“ muss ein Text von höchstens {number} Bytes sein",
  "FallCalibration0x .. FallCalibration3y: the four points cannot be a rectangle on the floor":
    "FallCalibration0x .. FallCalibration3y: die vier Punkte können kein Rechteck auf dem Boden sein",
  "The settings are in use but could not be stored; the system log says why":
    "Die Einstellungen gelten, konnten aber nicht gespeichert werden; das Systemprotokoll sagt, warum",
  "The settings are stored, but the lens could not be asked: the old floor is in use until the next save":
    "Die Einstellungen sind gespeichert, aber das Objektiv war nicht zu fragen: bis zum nächsten Speichern gilt der alte Boden",
  "Too many requests wait for the program; try again later":
    "Zu viele Anfragen warten auf das Programm; versuchen Sie es später noch einmal",
  "the document: is not a JSON object of settings": "das Dokument ist kein JSON-Objekt mit Einstellungen",
  "the document: {text}: is not a setting; allowed are rotation, mirrored, product_name, focal_length_um and parameters":
    "das Dokument: {text} ist keine Einstellung; erlaubt sind rotation, mirrored, product_name, focal_length_um und parameters",
  'the document: parameters: "{text}" {rule}': "das Dokument: parameters: „{text}“ {rule}",
  "the document: {text}: cannot be {text2}": "das Dokument: {text} kann nicht {text2} sein",
  "the form: {text}: cannot be {text2}": "{text} kann nicht {text2} sein",
  "allowed are true and false": "erlaubt sind true und false",
  "allowed are 0, 90, 180 and 270": "erlaubt sind 0, 90, 180 und 270",
  "allowed is a text that is not empty": "erlaubt ist ein Text, der nicht leer ist",
  "allowed is a whole number from 1 to 1000000": "erlaubt ist eine ganze Zahl von 1 bis 1000000",
  "allowed is an object of parameter names with texts as values":
    "erlaubt ist ein Objekt mit den Namen der Parameter und Texten als Werten",
  "{text}: is another here, and cannot be changed while the camera is watched; leave it out, or start with ./run --settings FILE":
    "{text} ist hier anders und lässt sich nicht ändern, solange die Kamera benutzt wird; lassen Sie es weg, oder starten Sie mit ./run --settings DATEI",
  "{text}: holds no lens and sensor that were chosen; ./run --reset camera removes it":
    "{text}: darin stehen kein Objektiv und kein Sensor, die gewählt wurden; ./run --reset camera entfernt die Datei",
  "{text}: is no camera that was taken over; ./run --reset camera removes it":
    "{text}: ist keine Kamera, die übernommen wurde; ./run --reset camera entfernt die Datei",
  "product_name: is too long to be kept": "product_name ist zu lang, um es zu merken",
  "limit is a whole number from {number} to {number2}": "limit ist eine ganze Zahl von {number} bis {number2}",
  "Send a form as the body": "Schicken Sie ein Formular als Inhalt",
  "Send a form as the body, with the field document: the text of a settings file":
    "Schicken Sie ein Formular als Inhalt, mit dem Feld document: dem Text einer Datei mit Einstellungen",
  accepted: "für richtig erklärt",
  reset: "neu gesetzt",
  "{role}": "{role}",

  // Personen.
  "Sign in, or send a token": "Melden Sie sich an, oder schicken Sie einen Schlüssel",
  "This is for a role of at least {role}": "Das darf nur, wer mindestens {role} ist",
  "The role is carer, nurse or installer": "Die Rolle ist carer, nurse oder installer",
  "The action is add, role, reset, remove, add_token or revoke":
    "Die Aktion ist add, role, reset, remove, add_token oder revoke",
  "The action is sign_in, sign_out or password": "Die Aktion ist sign_in, sign_out oder password",
  "The disk does not answer; try again later": "Der Datenträger antwortet nicht; versuchen Sie es später noch einmal",
  "Too many are signing in just now; try again in a moment":
    "Gerade melden sich zu viele an; versuchen Sie es gleich noch einmal",
  "Too many wrong passwords came from here; try again in {span}":
    "Von hier kamen zu viele falsche Passwörter; versuchen Sie es in {span} noch einmal",
  "Nobody has to sign in here": "Hier muss sich niemand anmelden",
  "The list of people is damaged, so nobody can sign in; the system log says what to do":
    "Die Liste der Personen ist beschädigt, also kann sich niemand anmelden; das Systemprotokoll sagt, was zu tun ist",
  "The name or the password is wrong": "Der Name oder das Passwort ist falsch",
  "A token has that name already": "Ein Schlüssel hat diesen Namen schon",
  "A token has no password; an installer makes another token":
    "Ein Schlüssel hat kein Passwort; wer installiert, macht einen anderen Schlüssel",
  "The old password is wrong": "Das alte Passwort ist falsch",
  "a password must have at least {number} characters, at most {number2} bytes, and no control characters":
    "ein Passwort muss mindestens {number} Zeichen haben, höchstens {number2} Bytes und keine Steuerzeichen",
  "A name has {number} to {number2} characters, none of them a control character":
    "Ein Name hat {number} bis {number2} Zeichen und kein Steuerzeichen",
  "There is nobody of that name": "Es gibt niemanden dieses Namens",
  "The last installer stays: make somebody else an installer first":
    "Der letzte Einrichter bleibt: machen Sie zuerst jemand anderen zum Einrichter",
  "Somebody has that name already": "Jemand hat diesen Namen schon",
  "The first person is an installer, who adds the others":
    "Die erste Person ist ein Einrichter, der die anderen hinzufügt",
  "There are too many people already": "Es sind schon zu viele Personen",
  "Somebody else has just changed the password": "Jemand anderes hat gerade das Passwort geändert",
  "Nobody has to sign in here yet: add an installer first":
    "Hier muss sich noch niemand anmelden: fügen Sie zuerst einen Einrichter hinzu",
  "There are too many tokens already": "Es sind schon zu viele Schlüssel",
  "There is no such token": "Diesen Schlüssel gibt es nicht",

  // Alarme, und wen sie rufen.
  "There is no such alarm any more": "Diesen Alarm gibt es nicht mehr",
  "It is closed already: it ended by itself before anybody was called":
    "Der Alarm ist schon abgeschlossen: er endete von selbst, bevor jemand gerufen wurde",
  "It is closed already: {answer} by {by}": "Der Alarm ist schon abgeschlossen: {answer}, sagt {by}",
  "It has many answers already: resolve it, or call it a false alarm":
    "Der Alarm hat schon viele Antworten: sagen Sie „Erledigt“ oder „Fehlalarm“",
  "A pause lasts {number} to {number2} minutes": "Eine Pause dauert {number} bis {number2} Minuten",
  "There is no pause; it may have ended by itself":
    "Es ist keine Pause; vielleicht ist sie von selbst zu Ende gegangen",
  "A test has been sent just now; look at what came of it first":
    "Gerade wurde ein Probealarm geschickt; sehen Sie sich zuerst an, was daraus wurde",
  "minutes is a whole number from {number} to {number2}": "minutes ist eine ganze Zahl von {number} bis {number2}",
  "The action is answer, pause, unpause or test": "Die Aktion ist answer, pause, unpause oder test",
  "what is coming, seen, false_alarm or resolved": "what ist coming, seen, false_alarm oder resolved",
  "A false alarm needs a reason: what was it really?": "Ein Fehlalarm braucht einen Grund: was war es wirklich?",
  "What is set for calls cannot be read yet, so nothing takes its place":
    "Was für die Rufe eingestellt ist, lässt sich noch nicht lesen, also tritt nichts an seine Stelle",
  "The disk does not answer: what was set counts once it is stored":
    "Der Datenträger antwortet nicht: was eingestellt wurde, gilt, sobald es gespeichert ist",
  "What was set could not be stored: {reason}": "Was eingestellt wurde, ließ sich nicht speichern: {reason}",
  "the document is no JSON": "das Dokument ist kein JSON",
  "{text} is an object": "{text} ist ein Objekt",
  '{text} has no "{text2}"': "{text} hat kein „{text2}“",
  "{text} is a text of {number} to {number2} bytes": "{text} ist ein Text von {number} bis {number2} Bytes",
  "{text} is a whole number of seconds from {number} to {number2}":
    "{text} ist eine ganze Zahl von Sekunden, {number} bis {number2}",
  "{text} is a list of at most {number} times of the day": "{text} ist eine Liste von höchstens {number} Tageszeiten",
  '{text}: each has "from" and "to", two different times from "00:00" to "24:00"':
    "{text}: jede hat „from“ und „to“, zwei verschiedene Zeiten von „00:00“ bis „24:00“",
  "{text}.url is no address": "{text}.url ist keine Adresse",
  "{text}.url begins with http:// or https:// and a host":
    "{text}.url beginnt mit http:// oder https:// und dem Namen eines Rechners",
  "{text}.url has no user, password or fragment; the signature says who calls":
    "{text}.url darf keinen Benutzer, kein Passwort und kein # haben; die Unterschrift sagt, wer ruft",
  "{text}.secret is needed: what signs the calls, of at least {number} bytes":
    "{text}.secret fehlt: das Geheimnis, das die Rufe unterschreibt, mindestens {number} Bytes",
  '{text}.kind is "people" or "webhook"': "{text}.kind ist „people“ oder „webhook“",
  "people are called from their level on: name them once":
    "wer angemeldet ist, wird von seiner Stufe an gerufen: nennen Sie das nur einmal",
  '{text}: there is a receiver "{text2}" already': "{text}: einen Empfänger „{text2}“ gibt es schon",
  "levels is a list of {number} to {number2} levels": "levels ist eine Liste von {number} bis {number2} Stufen",
  "{text} is a list of {number} to {number2} receivers": "{text} ist eine Liste von {number} bis {number2} Empfängern",
  'the first level calls the people at the page: {"kind": "people"}':
    'die erste Stufe ruft alle, die angemeldet sind: {"kind": "people"}',
  "events.fall.hours: a fall has to call at some time of the day":
    "events.fall.hours: ein Sturz muss zu irgendeiner Stunde des Tages rufen",

  // Der Server und der Zustand des Programms.
  "Only GET, HEAD and POST are understood": "Nur GET, HEAD und POST werden verstanden",
  "Only GET and HEAD are understood here": "Hier werden nur GET und HEAD verstanden",
  "Only GET and POST are understood here": "Hier werden nur GET und POST verstanden",
  "Only a body of application/x-www-form-urlencoded is understood":
    "Als Inhalt wird nur application/x-www-form-urlencoded verstanden",
  "The request may come from a foreign page: send a header X-Requested-With":
    "Die Anfrage kommt vielleicht von einer fremden Seite: schicken Sie einen Kopf X-Requested-With",
  "This server is {text}": "Dieser Server ist {text}",
  "The page is at {text}": "Die Seite ist unter {text}",
  "A request's body may have {number} bytes": "Der Inhalt einer Anfrage darf {number} Bytes haben",
  "The length of the request's body is not well-formed": "Die Länge des Inhalts ist falsch geschrieben",
  "The query is not well-formed": "Die Anfrage ist falsch geschrieben",
  "The program's reply is not well-formed": "Die Antwort des Programms ist nicht zu verstehen",
  "There is no such page": "Diese Seite gibt es nicht",
  "Too many connections; try again later": "Zu viele Verbindungen; versuchen Sie es später noch einmal",
  "Too many viewers of the events; close a page": "Zu viele Seiten sind offen; schließen Sie eine",
  "There is no authority here": "Hier gibt es keine Zertifizierungsstelle",
  "There is no explanation: {reason}": "Es gibt keine Erklärung: {reason}",
  "Nobody looks whether it sees": "Niemand prüft, ob sie sieht",
  "show is one of then, now, both": "show ist then, now oder both",
  "action is accept": "action ist accept",
  "The room as it is seen now counts from now on": "Von jetzt an gilt der Raum, wie er jetzt zu sehen ist",
  "the stream of {text} is not anonymised now": "der Bildstrom von {text} ist jetzt nicht anonymisiert",
  "the camera offers no stream of that resolution; it offers {text}":
    "die Kamera bietet keinen Bildstrom dieser Größe; sie bietet {text}",
  "the camera gives no picture": "die Kamera gibt kein Bild",
  "{phrase}": "{phrase}",
  "{number} {phrase}": "{number}, {phrase}",
  "Unknown status": "Zustand unbekannt",
  "Unknown default status": "Zustand unbekannt",
  Starting: "startet",
  AI: "wertet aus",
  Stopped: "angehalten",
  "Data error": "Fehler in den Daten",
  "AI error": "Fehler beim Auswerten",
  "Locations error": "Fehler bei den Orten",
  "AOI error": "Fehler bei den Bereichen",
  "Findings error": "Fehler bei den Befunden",
  "Events error": "Fehler bei den Ereignissen",
  "3D calibration error": "Fehler beim Vermessen des Bodens",
  "Patient not in bed, event active": "Patient nicht im Bett, Ereignis gilt",
  "Occupancy event active": "Ereignis „belegt“ gilt",
  "Patient out of bed": "Patient nicht im Bett",
  "Fall detected": "Sturz",
  Slow: "langsam",
  "No connection error": "keine Verbindung",
};
