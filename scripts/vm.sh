#!/usr/bin/env bash
# Runs a command as root in a virtual machine that has a kernel, a HID subsystem and a device manager
# of its own, and this machine's files:
#   scripts/vm.sh [--keep FOLDER] [--time SECONDS] COMMAND...
# What the command writes is lost, save in FOLDER. Its exit status is the command's; 125 when the
# machine did not come up or took longer than SECONDS (default: 900).
#
# The machine's root is this machine's own, read-only, with a layer in memory above: a build folder
# works in it unchanged. Its kernel is Debian's, with a USB host controller in software that tests
# plug devices into. It needs neither root nor hardware virtualisation, which is used where there
# is one. What it is made of is fetched once, into build/vm.
set -uo pipefail
# shellcheck source=scripts/common.sh
. "$(dirname "${BASH_SOURCE[0]}")/common.sh"

rig=$root/build/vm
parts=$root/scripts/vm
# Unpacked beside the machine, not installed: what only its inside needs.
unpacked_packages=(udev libkmod2 busybox-static)
boot_modules=(virtio_pci 9pnet_virtio 9p overlay)
hid_modules=(hid hid_generic usbhid uhid vhci_hcd)

newest_kernel() { apt-cache depends linux-image-amd64 | awk '/Depends: linux-image/ {print $2; exit}'; }

fetch_packages() {
  local package kernel
  mkdir -p "$rig/packages"
  cd "$rig/packages" || return
  if ! compgen -G "linux-image-*.deb" >/dev/null; then
    kernel=$(newest_kernel)
    if [[ -z $kernel ]]; then
      as_root apt-get update || return
      kernel=$(newest_kernel)
    fi
    apt-get download "$kernel" || return
  fi
  for package in "${unpacked_packages[@]}"; do
    compgen -G "${package}_*.deb" >/dev/null || apt-get download "$package" || return
  done
}

# unpack_kernel FOLDER: an image that the machine need not unpack itself, which takes it seconds,
# and the modules.
unpack_kernel() {
  local tree=$1
  dpkg-deb --fsys-tarfile "$rig"/packages/linux-image-*.deb |
    tar -x -C "$tree" --wildcards './boot/vmlinuz*' './lib/modules/*/modules.*' \
      './lib/modules/*/kernel/drivers/'{hid,usb,virtio}/'*' \
      './lib/modules/*/kernel/fs/'{9p,netfs,fscache,overlayfs}/'*' \
      './lib/modules/*/kernel/net/9p/*' || return
  python3 - "$tree"/boot/vmlinuz-* "$rig/vmlinux" <<'PYTHON'
import lzma
import sys

image = open(sys.argv[1], "rb").read()
packed = image[image.index(b"\xfd7zXZ\0"):]
open(sys.argv[2], "wb").write(lzma.LZMADecompressor().decompress(packed))
PYTHON
}

# copy_modules TREE FOLDER NAME...: the modules, each after those that it needs, with their order.
copy_modules() {
  local tree=$1 folder=$2 modules name path
  shift 2
  modules=$(echo "$tree"/lib/modules/*)
  mkdir -p "$folder"
  for name in "$@"; do
    grep -E "/${name//_/[-_]}\.ko:" "$modules/modules.dep" |
      awk '{for (i = NF; i > 1; --i) print $i; sub(/:$/, "", $1); print $1}'
  done | awk '!seen[$0]++' | while read -r path; do
    cp "$modules/$path" "$folder/" && basename "$path"
  done >"$folder/order"
}

# Names the packages' folders as a system does whose /bin, /lib and /sbin are links into /usr.
unpack_layer() {
  local tree=$1 layer=$2 part
  for part in bin lib sbin usr/bin usr/lib; do
    [[ -d $tree/$part ]] || continue
    mkdir -p "$layer/usr/${part#usr/}" && cp -a "$tree/$part/." "$layer/usr/${part#usr/}/"
  done
  rm -rf "$layer/usr/lib/udev/hwdb.d" # names of things, which nothing here needs
}

build_rig() {
  local tree ram=$rig/initramfs package
  fetch_packages || return
  tree=$(mktemp -d -p "$rig")
  rm -rf "$ram"
  mkdir -p "$tree/kernel" "$ram"/{bin,proc,sys,dev,lower,upper,root,layer/usr/bin}
  unpack_kernel "$tree/kernel" || return
  for package in "${unpacked_packages[@]}"; do
    dpkg-deb -x "$rig/packages/${package}"_*.deb "$tree/$package" || return
  done
  cp "$tree/busybox-static/bin/busybox" "$ram/bin/busybox"
  "$ram/bin/busybox" depmod -b "$tree/kernel" "$(basename "$tree"/kernel/lib/modules/*)"
  copy_modules "$tree/kernel" "$ram/modules" "${boot_modules[@]}"
  copy_modules "$tree/kernel" "$ram/hid_modules" "${hid_modules[@]}"
  [[ -s $ram/modules/order && -s $ram/hid_modules/order ]] || return
  unpack_layer "$tree/udev" "$ram/layer"
  unpack_layer "$tree/libkmod2" "$ram/layer"
  mv "$ram/layer/usr/lib/udev/rules.d/50-udev-default.rules" "$ram/" || return
  cp "$parts/init" "$parts/guest" "$ram/"
  (cd "$ram" && find . | cpio --quiet -o -H newc -R 0:0) >"$rig/initramfs.cpio" || return
  rm -rf "$tree" "$ram"
}

# Sets up what is missing or no longer what these scripts make.
prepare() {
  local wanted
  wanted=$(cat "$0" "$parts"/* | sha256sum)
  mkdir -p "$rig"
  (
    flock 9
    [[ -e $rig/made && $(<"$rig/made") == "$wanted" ]] ||
      { install_missing "${vm_packages[@]}" && build_rig && echo "$wanted" >"$rig/made"; }
  ) 9>"$rig/lock"
}

main() {
  local keep=$rig/kept seconds=900 status=0 accelerators=() appended
  while [[ ${1-} == --* ]]; do
    case $1 in
      --keep) keep=$(realpath "$2") ;;
      --time) seconds=$2 ;;
      *) fail "there is no option '$1'" ;;
    esac
    shift 2
  done
  (($# > 0)) || fail "which command?"
  quiet vm-setup prepare || exit 125
  mkdir -p "$rig/kept"
  session=$(mktemp -d)
  trap 'rm -rf "$session"' EXIT
  printf 'cd %q && %s\n' "$PWD" "$(printf '%q ' "$@")" >"$session/command"
  printf '%s\n' "$keep" >"$session/keep"

  [[ -w /dev/kvm ]] && accelerators=(-accel kvm)
  appended="console=ttyS0 quiet loglevel=4 panic=-1 mitigations=off nokaslr tsc=reliable"
  appended+=" no_timer_check audit=0 cryptomgr.notests random.trust_cpu=on"
  # The kernel's words go to a file, the command's to this script's output.
  timeout --foreground -k 5 "$seconds" qemu-system-x86_64 \
    "${accelerators[@]}" -accel tcg,thread=multi,tb-size=256 -cpu max -smp 2 -m 512 \
    -nodefaults -no-user-config -display none -no-reboot \
    -serial "file:$session/console" -serial stdio \
    -kernel "$rig/vmlinux" -initrd "$rig/initramfs.cpio" -append "$appended" \
    -fsdev local,id=host,path=/,security_model=none,readonly=on,multidevs=remap \
    -device virtio-9p-pci,fsdev=host,mount_tag=host \
    -fsdev "local,id=keep,path=$keep,security_model=none" \
    -device virtio-9p-pci,fsdev=keep,mount_tag=keep \
    -fsdev "local,id=session,path=$session,security_model=none" \
    -device virtio-9p-pci,fsdev=session,mount_tag=session </dev/null || status=$?
  if [[ ! -s $session/status ]]; then
    tail -n 40 "$session/console" >&2
    ((status == 124)) && echo "vm.sh: the machine ran for $seconds s" >&2
    echo "vm.sh: the machine did not run the command to its end" >&2
    return 125
  fi
  return "$(<"$session/status")"
}

main "$@"
