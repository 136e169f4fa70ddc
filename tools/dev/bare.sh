# Sourced by ./dev: ./dev bare, commands in a minimal Debian root.

# bare [COMMAND...]: runs them in a root with Debian's essential packages, apt and a copy of this tree.
bare() {
  local root
  [ "$(id -u)" = 0 ] || die "bare creates mounts: run it as root"
  [ $# -gt 0 ] || set -- demo test
  root=$(mktemp -d /var/tmp/bare.XXXXXX)
  trap "rm -rf --one-file-system '$root'" EXIT
  # Mounts and processes end with these namespaces, also after Ctrl-C.
  unshare --mount --pid --ipc --fork --kill-child "$BASH" ./dev bare_inside "$root" "$@"
}

# Prints the number of packages in the root, their size in MB, and the MB that apt has fetched.
bare_size() {
  local packages kilobytes  # dpkg counts in KiB
  packages=$(chroot "$1" dpkg-query -W -f='${Installed-Size}\n')
  kilobytes=$(du -c --apparent-size -B 1000 "$1"/var/cache/apt/archives | tail -n 1)
  awk -v fetched="${kilobytes%%[!0-9]*}" '{ sum += $1 } END { printf "%d %d %d", NR, sum * 1.024 / 1000, fetched / 1000 }' \
    <<< "$packages"
}

bare_inside() {
  local root=$1 suite sources before after more command
  shift
  trap 'rm -f "$quiet_log"; exit 130' INT
  suite=$(. /etc/os-release; printf '%s' "$VERSION_CODENAME")
  sources=$(apt-get indextargets --format 'deb $(REPO_URI) $(RELEASE) $(COMPONENT)' \
    'Created-By: Packages' 'Origin: Debian' | sort -u)
  [ -n "$sources" ] || die "apt has no Debian package lists: run apt-get update"
  mount -t proc proc /proc
  mapfile -t sources <<< "$sources"
  quietly "making a bare root of $suite" "" mmdebstrap --variant=minbase "$suite" "$root" "${sources[@]}"
  apt-config dump | awk '/^Acquire::https?::/' > "$root/etc/apt/apt.conf.d/90machine"  # proxies
  mkdir "$root/harrowmossd"
  git ls-files -z -co --exclude-standard | tar -c --null -T - | tar -x -C "$root/harrowmossd"
  mount --bind "$root" "$root"  # the bench phone pivots its root, which must be a mount point
  mount -t proc proc "$root/proc"
  mount -t sysfs -o ro sys "$root/sys"
  mount --rbind /dev "$root/dev"
  before=$(bare_size "$root")
  for command in "$@"; do
    quietly "./dev $command" "" env -i HOME=/root TERM=dumb PATH=/usr/sbin:/usr/bin:/sbin:/bin \
      ${http_proxy:+http_proxy="$http_proxy"} ${https_proxy:+https_proxy="$https_proxy"} \
      chroot "$root" /harrowmossd/dev "$command"
    after=$(bare_size "$root")
    read -ra more <<< "$before $after"
    say "-- up to ./dev $command: $((more[3] - more[0])) packages," \
      "$((more[5] - more[2])) MB fetched, $((more[4] - more[1])) MB installed"
  done
}
