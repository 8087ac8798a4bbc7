# SPDX-License-Identifier: MIT
# shellcheck shell=sh disable=SC2154  # variables of the script
# The trial "mistakes" of scripts/trial-packages, which reads this file: what operators do wrong, and what happens to
# them. The server keeps serving if it can, says what is wrong, and works again once that is corrected.

trial_mistakes() {
  boot mistakes
  install_version /packages
  serve_example
  timed 'lose the configuration, and repair it' try_configuration
  timed 'fill the disk, and make room' try_full_disk
  timed 'take the directories from their owner, and return them' try_owner
  timed 'start servers that cannot start' try_instances
  timed 'start the socket at the wrong time' try_wrong_socket
  timed 'remove it while clients ask, and install it on a port that is taken' try_removal
  timed 'install over files that the operator has changed' try_changed_files
  halt
}

# refused COMMAND... runs a command that must fail, and prints what it says.
refused() {
  if said=$(inside "$@" 2>&1); then fail "must not succeed: $*"; fi
  printf '%s\n' "$said"
}

# says TEXT looks for it in what is read.
says() {
  grep -qF -- "$1" || fail "does not say: $1"
}

# status_says TEXT looks for it in what systemd shows.
status_says() {
  inside systemctl show --property StatusText --value rdmd | grep -qF -- "$1"
}

# journal_says UNIT TEXT
journal_says() {
  inside journalctl --unit "$1" --output cat | grep -qF -- "$2"
}

check() {
  "$@" rdmd --check --user rdm --options /etc/rdm/rdmd.toml
}

# restart is not one of the five in ten seconds after which systemd gives up.
restart() {
  inside systemctl reset-failed rdmd
  inside systemctl restart rdmd
}

# --- Configuration

try_configuration() {
  inside mv /etc/rdm/csid.conf /etc/rdm/away
  check refused | says '/etc/rdm/csid.conf: error: cannot be read: No such file or directory'
  inside systemctl reload rdmd
  await 'the reason is shown' status_says 'no catalog service is configured any more; still serving'
  harvests 88 || fail 'a refused reload costs descriptions'
  inside mv /etc/rdm/away /etc/rdm/csid.conf
  inside systemctl reload rdmd
  await 'the reason is gone' shows_no_fault
  try_line
  try_option
}

shows_no_fault() {
  equal 'the status' "$(inside systemctl show --property StatusText --value rdmd)" 'Listening on 127.0.0.1:8380'
}

# try_line: a line that is wrong is named, and costs no other service.
try_line() {
  inside cp /etc/rdm/csid.conf /etc/rdm/away
  inside sh -c "echo 'csid=\"x-catalog://localhost:8380/other' >>/etc/rdm/csid.conf"
  check refused | says 'error: the quote after csid= is not closed'
  inside systemctl reload rdmd
  await 'the line is named' journal_says rdmd 'error: the quote after csid= is not closed'
  await 'the example is served' harvests 88
  inside mv /etc/rdm/away /etc/rdm/csid.conf
  inside systemctl reload rdmd
}

# try_option: a start with a mistake in the options fails at once, and the next one need not wait.
try_option() {
  inside sh -c "echo 'wokers = 3' >>/etc/rdm/rdmd.toml"
  refused systemctl restart rdmd | says 'Job for rdmd.service failed'
  equal 'further starts' "$(inside systemctl show --property NRestarts --value rdmd)" 0
  journal_says rdmd 'did you mean "workers"' || fail 'the mistake is not named'
  inside sed -i /wokers/d /etc/rdm/rdmd.toml
  inside systemctl restart rdmd
  harvests 88 || fail 'a corrected option is not enough'
}

# --- Disk and owners

try_full_disk() {
  mount_small
  inside sh -c '! cat /dev/zero >/mnt/fill' 2>/dev/null
  equal 'a long answer' "$(code_of 'scope=all')" 500
  await 'the reason is logged' journal_says rdmd 'cannot answer a request: No space left on device'
  equal 'a short answer' "$(code_of 'scope=all&view-hits=20')" 200
  refused runuser -u rdm -- rdmctl publish /var/lib/rdm/rfc.db "$examples/classics/rds.soif" | says 'No space left on device'
  inside minidba -d /var/lib/rdm/rfc.db verify | says 'sound: 88 descriptions'
  restart
  equal 'a short answer after a restart' "$(code_of 'scope=all&view-hits=20')" 200
  inside rm /mnt/fill
  harvests 88 || fail 'room is not enough'
  inside runuser -u rdm -- rdmctl publish --quiet /var/lib/rdm/rfc.db "$examples/classics/rds.soif" >>"$here/steps.log"
  harvests 112 || fail 'nothing can be published'
  await 'the access log is written again' inside grep -q rd-request /var/log/rdm/access.log
  unmount_small
}

# mount_small puts catalogs and logs on a disk of 4 MB.
mount_small() {
  inside systemctl stop rdmd
  inside mount -t tmpfs -o size=4M small /mnt
  for directory in lib log; do
    inside cp -a "/var/$directory/rdm" "/mnt/$directory"
    inside mount --bind "/mnt/$directory" "/var/$directory/rdm"
  done
  inside sh -c ': >/var/log/rdm/access.log'
  restart
}

unmount_small() {
  inside systemctl stop rdmd
  inside umount /var/lib/rdm /var/log/rdm /mnt
  restart
}

# code_of QUERY prints the HTTP status of a query.
code_of() {
  inside curl --silent --output /dev/null --write-out '%{http_code}' "$url/rd-request?ql=gatherer&$1"
}

try_owner() {
  inside chown -R root:root /var/lib/rdm
  inside chmod 700 /var/lib/rdm
  check refused | says 'Permission denied'
  inside systemctl reload rdmd
  await 'a reload returns the directory' harvests 88
  equal 'the owner' "$(inside stat --format %U /var/lib/rdm/rfc.db)" rdm
  inside chown root:root /var/lib/rdm/rfc.db
  inside chmod 600 /var/lib/rdm/rfc.db
  check refused | says '/var/lib/rdm/rfc.db: error: cannot be read: Permission denied'
  inside chown rdm:rdm /var/lib/rdm/rfc.db
  await 'the catalog is served again' harvests 88
  inside rm -r /var/log/rdm
  restart
  inside test -e /var/log/rdm/access.log
}

# --- Further servers, sockets

try_instances() {
  refused systemctl start rdmd@wrong | says 'Job for rdmd@wrong.service failed'
  await 'the file is named' journal_says rdmd@wrong /etc/rdm/wrong/rdmd.toml
  inside install -d /etc/rdm/wrong
  inside sh -c "printf 'config = \"/etc/rdm/rdm.conf\"\nlisten = \"127.0.0.1:8380\"\n' >/etc/rdm/wrong/rdmd.toml"
  refused systemctl start rdmd@wrong | says 'Job for rdmd@wrong.service failed'
  await 'the address is named' journal_says rdmd@wrong 'cannot listen on 127.0.0.1:8380: Address already in use'
  inside systemctl stop rdmd@wrong
  harvests 88 || fail 'the other server is gone'
}

# try_wrong_socket: systemd refuses a socket for a server that runs; a server with the address of the socket fails.
try_wrong_socket() {
  refused systemctl start rdmd.socket | says 'failed'
  harvests 88 || fail 'the server is gone'
  inside systemctl stop rdmd
  inside systemctl start rdmd.socket
  inside cp /etc/rdm/rdmd.toml /etc/rdm/away
  inside sh -c "echo 'listen = \"127.0.0.1:8380\"' >>/etc/rdm/rdmd.toml"
  refused systemctl start rdmd | says 'Job for rdmd.service failed'
  journal_says rdmd 'cannot listen on 127.0.0.1:8380: Address already in use' || fail 'the address is not named'
  inside mv /etc/rdm/away /etc/rdm/rdmd.toml
  restart
  harvests 88 || fail 'the socket is of no use'
  inside systemctl stop rdmd.socket rdmd
  restart
}

# --- Packages

# try_removal: clients get whole answers or are refused.
try_removal() {
  begin_load
  inside apt-get remove --yes --quiet rdmd >>"$here/steps.log"
  sleep 1
  end_load
  if [ "$requests" -eq 0 ] || [ "$harvests" -eq 0 ]; then fail 'nobody has asked'; fi
  if grep -vx '200\|000\|failed 7\|curl: (7) .*' "$here/load.requests" >&2; then fail 'a request was cut'; fi
  if grep -vx '88\|0\|failed\|rdm: .*: Failed to connect .*' "$here/load.harvests" >&2; then fail 'a harvest was cut'; fi
  try_taken_port
}

# try_taken_port: the package is installed all the same.
try_taken_port() {
  inside systemd-run --quiet --unit taken perl -MIO::Socket::INET -e \
    'push @s, IO::Socket::INET->new(LocalAddr => "127.0.0.1:8380", Listen => 1, ReuseAddr => 1) || die; sleep'
  await 'the port is taken' inside perl -MIO::Socket::INET -e 'IO::Socket::INET->new("127.0.0.1:8380") or die'
  install_version /packages
  # shellcheck disable=SC2016  # of dpkg-query
  equal 'the package' "$(inside dpkg-query --show --showformat '${Status}' rdmd)" 'install ok installed'
  journal_says rdmd 'cannot listen on 127.0.0.1:8380: Address already in use' || fail 'the port is not named'
  inside systemctl stop taken
  restart
  harvests 88 || fail 'a free port is not enough'
}

# try_changed_files: files in /etc stay as the operator has left them, also if those of the next version differ.
try_changed_files() {
  inside sh -c "echo '# kept' >>/etc/rdm/rdmd.toml"
  inside rm /etc/ufw/applications.d/rdmd
  install_packages --reinstall "/packages/rdmd_*.deb"
  changes_are_kept
  make_changed
  # Without a terminal dpkg cannot ask, and does not install it.
  if install_packages '/packages/next/librdm1_*.deb' /packages/changed.deb </dev/null; then fail 'dpkg has not asked'; fi
  harvests 88 || fail 'the old server is gone'
  inside dpkg --force-confold --configure --pending </dev/null >>"$here/steps.log" 2>&1
  await 'the new server serves' is_serving "$next"
  changes_are_kept
  inside grep -q '^# another default' /etc/rdm/rdmd.toml.dpkg-dist || fail 'the new file is not there to compare'
}

changes_are_kept() {
  equal 'the changed file' "$(inside tail -1 /etc/rdm/rdmd.toml)" '# kept'
  if inside test -e /etc/ufw/applications.d/rdmd; then fail 'a deleted file has come back'; fi
}

# make_changed makes a package of the next version, with another default.
make_changed() {
  rm -rf "$here/changed"
  dpkg-deb --raw-extract "$root/packages/next/rdmd_${next}_amd64.deb" "$here/changed"
  echo '# another default' >>"$here/changed/etc/rdm/rdmd.toml"
  dpkg-deb --root-owner-group --build "$here/changed" "$root/packages/changed.deb" >>"$here/steps.log"
  rm -rf "$here/changed"
}
