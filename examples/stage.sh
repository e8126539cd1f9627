#!/bin/sh
# stage.sh FOLDER: copies this example to a new folder and gives its files the owners and modes that they are to have on
# the customer's machine. A checkout keeps none of them but the x bit, and a bundle records what it finds.
set -eu

[ $# -eq 1 ] || { echo "usage: stage.sh FOLDER" >&2; exit 2; }
example=$(cd "$(dirname "$0")" && pwd)
folder=$1
mkdir "$folder"
cp -R "$example/Description.plist" "$example/Authoring" "$example/Staged" "$folder/"

readonly_owner=0:0
admin_group=0:80
cd "$folder/Staged"
find . -exec chown -h "$readonly_owner" {} +
find . -type d -exec chmod 0755 {} +
find . -type f -perm -u+x -exec chmod 0755 {} +
find . -type f ! -perm -u+x -exec chmod 0644 {} +

# Administrators may change the settings and replace the application.
chown "$admin_group" CoreServices/Library/Corvane/Endpoint/etc/endpoint.conf
chmod 0664 CoreServices/Library/Corvane/Endpoint/etc/endpoint.conf
find "UserAgent/Applications/Corvane Endpoint.app" -exec chown -h "$admin_group" {} +
find "UserAgent/Applications/Corvane Endpoint.app" -type d -exec chmod 0775 {} +
# Nobody but root reads what is looked for.
chmod 0700 ThreatDefense/Library/Corvane/ThreatDefense/rules
chmod 0600 ThreatDefense/Library/Corvane/ThreatDefense/rules/names.rules
chmod 0750 ThreatDefense/Library/Corvane/ThreatDefense/bin/corvane-watch
