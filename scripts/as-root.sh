# as_root COMMAND...: runs it with root's rights. For scripts to read in.
as_root() {
  if [ "$(id -u)" -eq 0 ]; then
    "$@"
  elif command -v sudo > /dev/null; then
    sudo "$@"
  else
    echo "$(basename "$0"): run as root, or install sudo" >&2
    exit 1
  fi
}
