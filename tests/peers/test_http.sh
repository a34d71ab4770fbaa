#!/usr/bin/env bash
# The command client against real servers on port 80, in a network namespace
# of its own: Apache httpd with Basic and Digest locations, nginx with static
# files and POSTs, GStreamer's RTSP server, and a scripted peer
# (http_peer.py); dnsmasq on 127.0.0.3 gives their names. $1 is the unit test
# program; on the board $DVR_EMULATOR (qemu-ppc-static) runs it.
set -euo pipefail

program=$1
here=$(cd "$(dirname "$0")" && pwd)
if [ -z "${DVR_HTTP_NAMESPACE:-}" ]; then
  [ "$(id -u)" -eq 0 ] || { echo "skipped: a network namespace needs root"; exit 77; }
  for tool in dnsmasq apache2 nginx htdigest; do
    command -v $tool >/dev/null || { echo "skipped: $tool is not installed"; exit 77; }
  done
  unshare -n true 2>/dev/null || { echo "skipped: no network namespaces here"; exit 77; }
  # A pid namespace of its own too: if the script is killed, its servers die with it.
  DVR_HTTP_NAMESPACE=1 exec unshare -n -p -f --kill-child --mount-proc bash "$0" "$@"
fi

ip link set lo up
work=$(mktemp -d)
chmod 755 "$work"
pids=()
stop() {
  for f in "$work"/*.pid; do [ -s "$f" ] && kill "$(cat "$f")" 2>/dev/null; done
  for p in "${pids[@]}"; do kill "$p" 2>/dev/null; done
  [ -n "${DVR_HTTP_KEEP:-}" ] && cp -r "$work" /tmp/http_keep; rm -rf "$work"
}
trap stop EXIT
# Starts a peer of http_peer.py and waits for its "ready" line.
peer() {
  local python=$1 ready=$work/ready.$2.$3
  shift
  mkfifo "$ready"
  "$python" "$here/http_peer.py" "$@" >"$ready" &
  pids+=($!)
  read -r line <"$ready"
  [ "$line" = ready ] || { echo "peer $* did not start"; exit 1; }
}

cat >"$work/dnsmasq.conf" <<CONF
no-resolv
no-hosts
no-poll
bind-interfaces
listen-address=127.0.0.3
port=53
user=root
pid-file=$work/dnsmasq.pid
local=/dvr.test/
host-record=apache.dvr.test,127.0.0.10
host-record=nginx.dvr.test,127.0.0.11
host-record=apache-direct.dvr.test,127.0.0.20
host-record=rtsp.dvr.test,127.0.0.12
host-record=peer.dvr.test,127.0.0.13
host-record=two.dvr.test,127.0.0.14
host-record=two.dvr.test,127.0.0.13
CONF
dnsmasq --conf-file="$work/dnsmasq.conf" --log-facility=-

mkdir -p "$work/www/basic" "$work/www/digest" "$work/static"
echo "basic secret" >"$work/www/basic/index.html"
echo "digest secret" >"$work/www/digest/index.html"
htpasswd -bc "$work/basic.users" dvr "right pass" 2>/dev/null
# htdigest asks twice for the password.
printf 'right pass\nright pass\n' | htdigest -c "$work/digest.users" "DVR Digest" dvr >/dev/null 2>&1
chmod 644 "$work"/*.users
m=/usr/lib/apache2/modules
cat >"$work/apache.conf" <<CONF
ServerRoot $work
ServerName apache.dvr.test
Listen 127.0.0.20:80
LoadModule mpm_event_module $m/mod_mpm_event.so
LoadModule authn_core_module $m/mod_authn_core.so
LoadModule authn_file_module $m/mod_authn_file.so
LoadModule authz_core_module $m/mod_authz_core.so
LoadModule authz_user_module $m/mod_authz_user.so
LoadModule auth_basic_module $m/mod_auth_basic.so
LoadModule auth_digest_module $m/mod_auth_digest.so
LoadModule dir_module $m/mod_dir.so
User www-data
Group www-data
PidFile $work/apache.pid
DefaultRuntimeDir $work
ErrorLog $work/apache.error
LogFormat "%r %>s" line
CustomLog $work/apache.access line
DocumentRoot $work/www
DirectoryIndex index.html
<Location /basic>
  AuthType Basic
  AuthName "DVR Basic"
  AuthUserFile $work/basic.users
  Require valid-user
</Location>
<Location /digest>
  AuthType Digest
  AuthName "DVR Digest"
  AuthDigestQop auth
  # Apache sends an opaque only when it counts nonces.
  AuthDigestNcCheck On
  AuthUserFile $work/digest.users
  Require valid-user
</Location>
CONF
apache2 -f "$work/apache.conf" -k start

: >"$work/static/empty.txt"
head -c $((5 * 1024 * 1024 + 7)) /dev/urandom | base64 -w 76 >"$work/static/big.txt"
cat >"$work/nginx.conf" <<CONF
user root;
pid $work/nginx.pid;
error_log $work/nginx.error;
events {}
http {
  access_log off;
  client_body_temp_path $work/nginx_body;
  proxy_temp_path $work/nginx_proxy;
  fastcgi_temp_path $work/nginx_fastcgi;
  uwsgi_temp_path $work/nginx_uwsgi;
  scgi_temp_path $work/nginx_scgi;
  server {
    listen 127.0.0.21:80;
    root $work/static;
    location /post { return 200 "\$request_method \$content_length [\$http_cookie]\n"; }
  }
}
CONF
nginx -c "$work/nginx.conf"

peer python3 script 127.0.0.13
# Apache and nginx refuse a blank before a header's colon, whatever their
# settings: relays in front of them take it out of "Accept : */*".
peer python3 relay 127.0.0.10 127.0.0.20
peer python3 relay 127.0.0.11 127.0.0.21
rtsp=0
if /usr/bin/python3 -c 'import gi; gi.require_version("GstRtspServer", "1.0")' 2>/dev/null; then
  peer /usr/bin/python3 rtsp 127.0.0.12
  rtsp=1
fi

DVR_HTTP_PEERS=127.0.0.3 DVR_HTTP_RTSP=$rtsp DVR_HTTP_WORK=$work \
  ${DVR_EMULATOR:-} "$program" --gtest_filter="${DVR_HTTP_FILTER:-HttpPeer.*}"
