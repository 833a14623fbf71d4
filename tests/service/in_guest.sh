# Makes of a guest (script/guest) a machine on which systemd runs quarlo-input.service: devices, a socket of the remote,
# and systemd as the first process of a container. Ends with the status of checks.sh, which runs there.
set -e
tar -xf systemd.tar -C /
ln -s "$PWD/quarlo-input" /usr/bin/quarlo-input

# Users and files as on a Debian machine, as far as something asks for them.
echo root:x:0:0::/root:/bin/sh >>/etc/passwd
printf 'root:x:0:\ninput:x:104:\nnogroup:x:65534:\n' >/etc/group
echo 0123456789abcdef0123456789abcdef >/etc/machine-id
mkdir -p /root /home/tv /srv/open /var/log /var/lib
mount -t tmpfs none /run  # which systemd would do, and hide what is there
ln -s /run /var/run
echo holiday >/home/tv/note
chmod 777 /srv/open

# The mouse and the keyboard are found by a search, which takes the last one.
make_device() {
  evemu-device "$1" >/dev/null &
  while [ ! -e "$2" ]; do sleep 1; done
  chgrp input "$2"
  chmod 660 "$2"
}
make_device keyboard.evemu /dev/input/event0
make_device keyboard.evemu /dev/input/event1
make_device mouse.evemu /dev/input/event2
mkdir -p /run/lirc
inputlircd -f -g -d /run/lirc/lircd /dev/input/event0 &
while [ ! -e /run/lirc/lircd ]; do sleep 1; done
chmod 666 /run/lirc/lircd /dev/uinput
nc -ll -p 7 -e true &

# Units: the service, and the fewest that systemd asks for.
units=/etc/systemd/system
mkdir -p $units/quarlo-input.service.d
cp quarlo-input.service $units
for target in sysinit basic shutdown multi-user; do
  printf '[Unit]\nDescription=%s\n' $target >$units/$target.target
done
cat >$units/checks.service <<END
[Unit]
SuccessAction=exit-force
FailureAction=exit-force

[Service]
Type=oneshot
WorkingDirectory=$PWD
ExecStart=/bin/sh checks.sh
Environment=PATH=$PATH
StandardOutput=tty
StandardError=tty
TTYPath=/dev/console
END

mount --make-rshared /
mkdir -p /sys/fs/cgroup
mount -t cgroup2 none /sys/fs/cgroup
status=0
unshare -p -m -f --mount-proc env container=quarlo /usr/lib/systemd/systemd --unit=checks.service \
  --show-status=no --log-target=console --log-color=no --log-level=crit || status=$?
stty -onlcr </dev/console  # as script/guest-init had it
exit $status
