# Sourced by the scripts that run the built program from an instance folder
# (as the backup system lays one out).
#
# instance_files FOLDER PROGRAM: copies the program into FOLDER and writes
# its filter files there: volume C: whole included, nothing excluded. The
# caller writes the registry file (and the snapshot mapping, if any).
instance_files() {
  mkdir -p "$1"
  cp "$2" "$1/"
  { printf '\xff\xfe'; printf 'C:\\\r\n' | iconv -f UTF-8 -t UTF-16LE; } > "$1/NorvaGuestIndexer.inc.filter"
  printf '\xff\xfe' > "$1/NorvaGuestIndexer.exc.filter"
}
