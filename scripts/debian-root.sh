# Minimal Debian systems, of any suite, in which to try what users do. For scripts to read in, from
# the top of the source tree. What Debian gives is kept in build/debian for the next run.
. scripts/as-root.sh

debian=build/debian
root=$debian/root
mkdir -p "$debian"

fail() {
  echo "$(basename "$0"): $1" >&2
  exit 1
}

quietly() {
  "$@" > "$debian/log" 2>&1 || {
    cat "$debian/log" >&2
    fail "this failed: $*"
  }
}

# Runs a command in the root, with a /proc and terminals that end with the command.
in_root() {
  # shellcheck disable=SC2016
  as_root unshare --mount --pid --fork --kill-child sh -c \
    'mount -t proc proc "$0/proc" && mount -t devpts -o ptmxmode=666 devpts "$0/dev/pts" &&
      exec chroot "$0" env -i HOME=/root LC_ALL=C.UTF-8 \
      PATH=/usr/sbin:/usr/bin DEBIAN_FRONTEND=noninteractive "$@"' "$root" "$@"
}

install_in_root() { quietly in_root apt-get install -y --no-install-recommends "$@"; }

this_suite() { (. /etc/os-release && echo "$VERSION_CODENAME"); }

# Where this machine has its Debian from, which has the other suites too; and by which proxy.
mirror() {
  apt-get indextargets --format '$(REPO_URI) $(CODENAME) $(COMPONENT)' 'Created-By: Packages' |
    sed -n "s/ $(this_suite) main\$//p" | head -n 1
}
proxy() { apt-config dump --format '%f "%v";%n' Acquire::http::Proxy Acquire::https::Proxy; }

keep_root() {
  quietly as_root tar -C "$root" --one-file-system -cf "$1.part" .
  as_root mv "$1.part" "$1"
}

unpack_root() {
  as_root rm -rf "$root"
  mkdir "$root"
  quietly as_root tar -C "$root" -xpf "$1"
}

make_minimal_root() {
  as_root rm -rf "$root"
  [ -n "$(mirror)" ] || fail "apt of this machine does not know where Debian is"
  echo "Fetching a minimal $1"
  (
    eval "$(apt-config shell http_proxy Acquire::http::Proxy)"
    [ -z "${http_proxy:-}" ] || export http_proxy
    quietly as_root debootstrap --variant=minbase "$1" "$root" "$(mirror)"
  )
  proxy | as_root tee "$root/etc/apt/apt.conf.d/proxy" > /dev/null
  # Nothing in it need outlive this machine.
  echo force-unsafe-io | as_root tee "$root/etc/dpkg/dpkg.cfg.d/unsafe-io" > /dev/null
  quietly in_root apt-get clean
}

# unpack_minimal_root SUITE: what every Debian of that suite has.
unpack_minimal_root() {
  if [ -e "$debian/$1.tar" ]; then
    unpack_root "$debian/$1.tar"
  else
    make_minimal_root "$1"
    keep_root "$debian/$1.tar"
  fi
}
