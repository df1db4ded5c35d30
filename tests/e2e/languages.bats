#!/usr/bin/env bats
# The installed catalogues: the program's texts in the caller's language.
load helpers
load cgroups

# Installs the build, only on this simulated host.
install_build() {
    cmake --install "$(dirname "$(dirname "$KIVCTL")")" --prefix /usr >/dev/null
}

# Every translated text, as a caller sees it.
everything() {
    kivctl -h | sed '1,/^$/d; /^____/,$d'
    {
        kivctl -c || true
        kivctl -x || true
        kivctl || true
        kivctl restart || true
        kivctl exec || true
        kivctl start || true
        kivctl status -a x || true
        setpriv --reuid nobody --clear-groups kivctl status -a || true
        kivctl status root || true
        kivctl status alice@x || true
        kivctl status ghost || true
    } 2>&1
    kivctl status alice
    kivctl status carol
    kivctl status -a 2>/dev/null || true
}

# Accounts for that: one that runs, one that does not, and three that cannot have a container.
accounts() {
    account alice
    account carol
    printf '%s\n' root alice@x ghost >>"$registry"
    stand_in_cgroups
    figures alice pids.current=14 pids.max=100 memory.current=104857600 memory.high=max
}
export -f install_build everything accounts

@test "all texts are in German" {
    in_host <<'END'
install_build
accounts
speak de_DE
same "all texts" "$(cat <<'EOF'
Aufruf: kivctl [Optionen] [Befehl]

Optionen:
  -c, --config=DATEI    Konfigurationsdatei DATEI verwenden
                        Vorgabe: /etc/tarnwell/kiv.conf

Befehle:
  exec   <user>         Shell im Container des Benutzers <user> ausführen
  start  <user> | -a    Container des Benutzers <user> starten, mit »-a« die aller eingerichteten Benutzer
  stop   <user> | -a    Container des Benutzers <user> anhalten, mit »-a« die aller eingerichteten Benutzer
  status <user> | -a    Status des Containers des Benutzers <user> anzeigen, mit »-a« den aller eingerichteten Benutzer
  -h, --help            diese Hilfe anzeigen
  -v, --version         Programmversion anzeigen
[FEHLER] kivctl: Option »-c« erfordert ein Argument.
[FEHLER] kivctl: unbekannte Option »-x«
[FEHLER] kivctl: fehlender Befehl (»-h« zeigt die Hilfe an)
[FEHLER] kivctl: unbekannter Befehl »restart«
[FEHLER] kivctl: fehlender Benutzername
[FEHLER] kivctl: fehlender Benutzername (oder Option »-a«)
[FEHLER] kivctl: zu viele Argumente
kivctl: nur root darf dieses Programm ausführen
kivctl: root: für UID 0 kann kein Container angelegt werden
kivctl: alice@x: unzulässiges Zeichen »@« im Benutzernamen
kivctl: ghost: unbekannter Benutzer
Konto: alice
Aktiv: ja
Prozesse: 14 (14%)
Speicher: 104857600
Konto: carol
Aktiv: nein
+-------+-------+-----------+------------------+
| Konto | Aktiv | Prozesse  | Speicher         |
+-------+-------+-----------+------------------+
| alice | ja    | 14  (14%) | 104857600    (∞) |
| carol | nein  |           |                  |
+-------+-------+-----------+------------------+
EOF
)" "$(everything)"
END
}

@test "all texts are in French, and the table's columns are aligned" {
    in_host <<'END'
install_build
accounts
speak fr_FR
same "all texts" "$(cat <<'EOF'
Utilisation : kivctl [options] [commande]

Options :
  -c, --config=FICHIER  utiliser le fichier de configuration FICHIER
                        par défaut : /etc/tarnwell/kiv.conf

Commandes :
  exec   <user>         exécuter un shell dans le conteneur de l'utilisateur <user>
  start  <user> | -a    démarrer le conteneur de l'utilisateur <user> ou, avec « -a », ceux de tous les utilisateurs configurés
  stop   <user> | -a    arrêter le conteneur de l'utilisateur <user> ou, avec « -a », ceux de tous les utilisateurs configurés
  status <user> | -a    afficher l'état du conteneur de l'utilisateur <user> ou, avec « -a », de ceux de tous les utilisateurs configurés
  -h, --help            afficher cette aide
  -v, --version         afficher la version du programme
[ERREUR] kivctl: l'option « -c » nécessite un argument.
[ERREUR] kivctl: option « -x » inconnue
[ERREUR] kivctl: commande manquante (« -h » affiche l'aide)
[ERREUR] kivctl: commande « restart » inconnue
[ERREUR] kivctl: nom d'utilisateur manquant
[ERREUR] kivctl: nom d'utilisateur (ou option « -a ») manquant
[ERREUR] kivctl: trop d'arguments
kivctl: seul root peut exécuter ce programme
kivctl: root: impossible de créer un conteneur pour l'UID 0
kivctl: alice@x: caractère « @ » non valable dans le nom d'utilisateur
kivctl: ghost: utilisateur inconnu
Compte : alice
Actif : oui
Processus : 14 (14%)
Mémoire : 104857600
Compte : carol
Actif : non
+--------+-------+-----------+------------------+
| Compte | Actif | Processus | RAM              |
+--------+-------+-----------+------------------+
| alice  | oui   | 14  (14%) | 104857600    (∞) |
| carol  | non   |           |                  |
+--------+-------+-----------+------------------+
EOF
)" "$(everything)"
END
}

@test "all texts are in Spanish, and the table's columns are aligned" {
    in_host <<'END'
install_build
accounts
speak es_ES
same "all texts" "$(cat <<'EOF'
Modo de empleo: kivctl [opciones] [orden]

Opciones:
  -c, --config=FICHERO  utiliza el fichero de configuración FICHERO
                        predeterminado: /etc/tarnwell/kiv.conf

Órdenes:
  exec   <user>         ejecuta un intérprete de órdenes en el contenedor del usuario <user>
  start  <user> | -a    inicia el contenedor del usuario <user> o, con «-a», los de todos los usuarios configurados
  stop   <user> | -a    detiene el contenedor del usuario <user> o, con «-a», los de todos los usuarios configurados
  status <user> | -a    muestra el estado del contenedor del usuario <user> o, con «-a», el de los de todos los usuarios configurados
  -h, --help            muestra esta ayuda
  -v, --version         muestra la versión del programa
[ERROR] kivctl: la opción «-c» requiere un argumento.
[ERROR] kivctl: opción desconocida «-x»
[ERROR] kivctl: falta una orden («-h» muestra la ayuda)
[ERROR] kivctl: orden desconocida «restart»
[ERROR] kivctl: falta el nombre de usuario
[ERROR] kivctl: falta el nombre de usuario (o la opción «-a»)
[ERROR] kivctl: demasiados argumentos
kivctl: solamente root puede ejecutar este programa
kivctl: root: no se puede crear un contenedor para el UID 0
kivctl: alice@x: carácter no válido «@» en el nombre de usuario
kivctl: ghost: usuario desconocido
Cuenta: alice
Activo: si
Procesos: 14 (14%)
Memoria: 104857600
Cuenta: carol
Activo: no
+--------+--------+-----------+------------------+
| Cuenta | Activo | Procesos  | Memoria          |
+--------+--------+-----------+------------------+
| alice  | si     | 14  (14%) | 104857600    (∞) |
| carol  | no     |           |                  |
+--------+--------+-----------+------------------+
EOF
)" "$(everything)"
END
}

@test "in a charset of single bytes every character is one byte" {
    in_host <<'END'
install_build
account alice
speak fr_FR ISO-8859-1
same "report" $'Compte\u00a0: alice\nActif\u00a0: non' "$(kivctl status alice | iconv -f ISO-8859-1 -t UTF-8)"
END
}

@test "the language is that of LC_ALL, LC_MESSAGES or LANG in this order, and LANGUAGE is ignored" {
    in_host <<'END'
install_build
account alice
for locale in de_AT es_MX fr_FR; do
    speak "$locale"
done
unset LC_ALL
says() {
    same "$*" "$1" "$(env "${@:2}" kivctl status alice | head -1)"
}
says "Konto: alice" LANG=de_AT.UTF-8
says "Cuenta: alice" LANG=de_AT.UTF-8 LC_MESSAGES=es_MX.UTF-8
says $'Compte\u00a0: alice' LANG=de_AT.UTF-8 LC_MESSAGES=es_MX.UTF-8 LC_ALL=fr_FR.UTF-8
says "Konto: alice" LANG=de_AT.UTF-8 LANGUAGE=fr
END
}

@test "without a catalogue for the language the texts are English" {
    in_host <<'END'
install_build
account alice
speak it_IT
same "report" "Account: alice
Active: no" "$(kivctl status alice)"
speak de_DE
rm /usr/share/locale/de/LC_MESSAGES/kivctl.mo
same "report" "Account: alice
Active: no" "$(kivctl status alice)"
END
}

@test "kiv-run uses the caller's language from the same catalogue" {
    in_host <<'END'
install_build
german
same "usage and heading" "Aufruf: kiv-run [Optionen] BENUTZER [BEFEHL [ARGUMENT]...]

Führt einen Befehl oder die Login-Shell im Container des Benutzers aus." "$(kiv-run --help | head -n 3)"
refused kiv-run -u 9 alice 2>/tmp/said
same "a refusal" "kiv-run: »9« ist keine Oktalzahl bis 777" "$(cat /tmp/said)"
refused kiv-run ghost 2>/tmp/said
same "an unknown user" "kiv-run: ghost: unbekannter Benutzer" "$(cat /tmp/said)"
END
}
