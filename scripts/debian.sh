# SPDX-License-Identifier: MIT
# shellcheck shell=sh
# Systems of Debian, for the scripts that make them.

# package_version prints the version in debian/changelog.
package_version() {
  sed -n '1s/^rdm (\(.*\)).*/\1/p' debian/changelog
}

# archives prints the lines of the machine's Debian archives for apt.
archives() {
  # shellcheck disable=SC2016  # apt's own variables
  apt-get indextargets --format 'deb $(REPO_URI) $(RELEASE) $(COMPONENT)' 'Created-By: Packages' 'Origin: Debian' | sort -u
}

# bootstrap DIRECTORY makes a small Debian 12 there, whose apt uses the machine's archives.
bootstrap() {
  debootstrap --variant=minbase bookworm "$1" "$(archives | awk '$3 == "bookworm" { print $2; exit }')"
  archives >"$1/etc/apt/sources.list"
  cp /etc/resolv.conf "$1/etc/resolv.conf"
}

# in_root DIRECTORY COMMAND... runs a command in that system, with processes of its own.
in_root() {
  directory=$1
  shift
  env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin DEBIAN_FRONTEND=noninteractive LC_ALL=C.UTF-8 \
    unshare --mount --pid --fork --kill-child --root "$directory" --mount-proc "$@"
}
