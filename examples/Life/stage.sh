#!/bin/sh
# stage.sh FOLDER: makes a new folder with what the bundles of this example are built from: the descriptions beside this
# script, and the components' files, with the owners and modes that they are to have on the machine.
set -eu

[ $# -eq 1 ] || { echo "usage: stage.sh FOLDER" >&2; exit 2; }
example=$(cd "$(dirname "$0")" && pwd)
folder=$1
umask 022
mkdir "$folder"
cp "$example"/*.plist "$folder/"

# put COMPONENT PATH MODE LINE: a file of one line.
put() {
  file=$folder/Staged/$1$2
  mkdir -p "$(dirname "$file")"
  printf '%s\n' "$4" >"$file"
  chmod "$3" "$file"
}

put Core-1.0 /Library/Guard/bin/guard 0755 '# guard 1.0'
put Core-1.0 /Library/Guard/etc/guard.conf 0664 'level = default'
put Core-1.0 /Library/LaunchDaemons/com.corvane.guard.plist 0644 '<plist version="1.0"><dict/></plist>'
put Core-1.1 /Library/Guard/bin/guard 0755 '# guard 1.1'
put Core-1.1 /Library/Guard/bin/guard-report 0755 '# new in 1.1'
put Core-1.1 /Library/Guard/etc/guard.conf 0664 'level = default of 1.1'
put Core-1.1 /Library/LaunchDaemons/com.corvane.guard.plist 0644 '<plist version="1.0"><dict/></plist>'
put Tools /Library/Guard/tools/inspect 0755 '# the same in both versions'
put Legacy /Library/Guard/legacy/converter 0755 '# no longer in 1.1'
put Extra /Library/Guard/extra/scan 0755 '# a component that is new in 1.1'
put Server '/Library/Guard Server/serve' 0755 '# of the second product'
put MailClassic '/Library/Guard Mail/classic-filter' 0755 '# of the older product'
put MailClassic '/Library/Guard Mail/mail.conf' 0644 'filter = classic'
put MailClassic '/Library/Guard Mail/rules/default.rule' 0644 'reject nothing'
put Mail '/Library/Guard Mail/filter' 0755 '# takes the place of classic-filter'
put Mail '/Library/Guard Mail/mail.conf' 0644 'filter = new'
put Mail '/Library/Guard Mail/rules/default.rule' 0644 'reject little'
put Suite '/Library/Guard Suite/suite' 0755 '# hands over to Guard Extras'
# Takes as long as somebody holds it, so that it can be watched.
put Extras '/Library/Guard Extras/extras' 0755 '#!/bin/sh
while [ -e /tmp/demo-life/hold ]; do sleep 0.1; done'
chown -R 0:0 "$folder/Staged"
