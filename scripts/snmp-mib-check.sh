#!/usr/bin/env bash
# Walks the LLDP MIBs through Debian's snmpd, with the MIB modules loaded, and compares every
# object with the modules (names, index structure, types, ranges, enumerations, BITS) and with
# what the agent shows (`lldp show neighbors/local/statistics/status --json`); GETs and GETNEXTs
# from odd places must agree with the walk. Host A runs the agent as a subagent of snmpd; it
# hears agent B (an LLDP-MED endpoint sending TLVs of its own) on one port, and on another two
# neighbours whose LLDPDUs are made here (every TLV the MIBs have an object for, unknown TLVs,
# organisationally specific TLVs the agent does not decode, the three location formats).
# Usage (as root): scripts/snmp-mib-check.sh MIB-DIR [build-dir]
# Prints each disagreement and a summary line; exits 0 when there is none. KEEP=1 keeps the
# work directory (walks, JSON, logs) for a look afterwards.
set -euo pipefail
top=$(cd "$(dirname "$0")/.." && pwd)
[[ $# -ge 1 && -d $1 ]] || { echo "usage: $0 MIB-DIR [build-dir]" >&2; exit 2; }
mibs=$(cd "$1" && pwd)
build=$(cd "${2:-$top/build}" && pwd)
keep=${KEEP:-}
[[ $EUID -eq 0 ]] || { echo "$0: needs root (network namespaces)" >&2; exit 2; }
for tool in snmpd snmpbulkwalk snmptranslate python3 ip; do
  command -v "$tool" >/dev/null || { echo "$0: needs $tool (apt-get install snmpd snmp iproute2 python3)" >&2; exit 2; }
done
[[ -x $build/lldp-agent && -x $build/lldp ]] || { echo "$0: no lldp-agent and lldp in $build" >&2; exit 2; }

tag=$$
nsA=mibA$tag nsB=mibB$tag nsC=mibC$tag
a0=mxa$tag b0=mxb$tag a1=mya$tag c0=myc$tag
work=$(mktemp -d /tmp/snmp-mib-check.XXXXXX)
chmod 755 "$work"
pids=()
cleanup() {
  for p in "${pids[@]}"; do kill "$p" 2>/dev/null || true; done
  for p in "${pids[@]}"; do wait "$p" 2>/dev/null || true; done
  for ns in "$nsA" "$nsB" "$nsC"; do ip netns del "$ns" 2>/dev/null || true; done
  [[ -n ${keep:-} ]] || rm -rf "$work"
}
trap cleanup EXIT
ip netns add "$nsA"; ip netns add "$nsB"; ip netns add "$nsC"
ip -n "$nsA" link set lo up
ip -n "$nsA" link add "$a0" type veth peer name "$b0" netns "$nsB"
ip -n "$nsA" link add "$a1" type veth peer name "$c0" netns "$nsC"
ip -n "$nsA" addr add 192.0.2.1/24 dev "$a0"
ip -n "$nsA" addr add 2001:db8::1/64 dev "$a0" nodad
ip -n "$nsB" addr add 192.0.2.2/24 dev "$b0"
for l in "$nsA $a0" "$nsA $a1" "$nsB $b0" "$nsC $c0"; do set -- $l; ip -n "$1" link set "$2" up; done

port=1161
cat >"$work/snmpd.conf" <<CONF
master agentx
agentXSocket $work/agentx.sock
agentaddress udp:127.0.0.1:$port
rocommunity public 127.0.0.1
CONF
mkdir "$work/persist"
MIBS= ip netns exec "$nsA" snmpd -f -Lo -C -c "$work/snmpd.conf" -p "$work/snmpd.pid" --persistentDir="$work/persist" >"$work/snmpd.log" 2>&1 &
pids+=($!)

cat >"$work/a.toml" <<CONF
transmit-interval = 5
snmp.enabled = true
snmp.agentx-socket = "$work/agentx.sock"
snmp.notifications = true
med = true
management-address.transmit = "all"
management-address.ipv6-interface = "$a0"
system.name = "host-a"
system.description = "the checked host"
[interface."$a0"]
network-policy.1.vlan = 100
network-policy.1.priority = 5
network-policy.1.dscp = 46
network-policy.1.tagged = true
CONF
cat >"$work/b.toml" <<CONF
transmit-interval = 5
system.chassis-id = "02:00:00:00:ee:0b"
system.name = "phone-b"
system.description = "an endpoint"
[interface."$b0"]
external-tlv.00-12-bb.1.1 = "00 33 03"
external-tlv.00-12-bb.2.1 = "01 40 c8 ae"
external-tlv.00-12-bb.5.1 = "31 2e 30"
external-tlv.00-12-bb.10.1 = "70 68 6f 6e 65"
external-tlv.00-12-bb.4.1 = "51 00 82"
external-tlv.00-80-c2.3.1 = "00 14 05 76 6f 69 63 65"
external-tlv.00-aa-bb.7.1 = "01 02 03"
CONF
for n in A B; do
  ns=ns$n; low=${n,,}
  ip netns exec "${!ns}" "$build/lldp-agent" --config "$work/$low.toml" --log stderr --socket "$work/$low.sock" >"$work/$low.log" 2>&1 &
  pids+=($!)
done
# The base modules the LLDP modules import, for machines without them: just the textual
# conventions, so that net-snmp knows the syntax of every object.
mkdir "$work/base"
cat >"$work/base/SNMPv2-TC" <<'MIB'
SNMPv2-TC DEFINITIONS ::= BEGIN
IMPORTS TimeTicks FROM SNMPv2-SMI;
DisplayString ::= TEXTUAL-CONVENTION
    DISPLAY-HINT "255a"
    STATUS current
    DESCRIPTION "stub"
    SYNTAX OCTET STRING (SIZE (0..255))
TruthValue ::= TEXTUAL-CONVENTION
    STATUS current
    DESCRIPTION "stub"
    SYNTAX INTEGER { true(1), false(2) }
TimeStamp ::= TEXTUAL-CONVENTION
    STATUS current
    DESCRIPTION "stub"
    SYNTAX TimeTicks
AutonomousType ::= TEXTUAL-CONVENTION
    STATUS current
    DESCRIPTION "stub"
    SYNTAX OBJECT IDENTIFIER
RowStatus ::= TEXTUAL-CONVENTION
    STATUS current
    DESCRIPTION "stub"
    SYNTAX INTEGER { active(1), notInService(2), notReady(3), createAndGo(4), createAndWait(5), destroy(6) }
MacAddress ::= TEXTUAL-CONVENTION
    DISPLAY-HINT "1x:"
    STATUS current
    DESCRIPTION "stub"
    SYNTAX OCTET STRING (SIZE (6))
END
MIB
cat >"$work/base/SNMP-FRAMEWORK-MIB" <<'MIB'
SNMP-FRAMEWORK-MIB DEFINITIONS ::= BEGIN
SnmpAdminString ::= TEXTUAL-CONVENTION
    DISPLAY-HINT "255t"
    STATUS current
    DESCRIPTION "stub"
    SYNTAX OCTET STRING (SIZE (0..255))
END
MIB
cat >"$work/base/IANA-ADDRESS-FAMILY-NUMBERS-MIB" <<'MIB'
IANA-ADDRESS-FAMILY-NUMBERS-MIB DEFINITIONS ::= BEGIN
AddressFamilyNumbers ::= TEXTUAL-CONVENTION
    STATUS current
    DESCRIPTION "stub"
    SYNTAX INTEGER { other(0), ipV4(1), ipV6(2), nsap(3), hdlc(4), bbn1822(5), all802(6), e163(7),
                     e164(8), f69(9), x121(10), ipx(11), appleTalk(12), decnetIV(13), banyanVines(14),
                     e164withNsap(15), dns(16), distinguishedName(17), asNumber(18), xtpOverIpv4(19),
                     xtpOverIpv6(20), xtpNativeModeXTP(21), fibreChannelWWPN(22), fibreChannelWWNN(23),
                     gwid(24), afi(25), reserved(65535) }
END
MIB
mibpath="$mibs:$work/base"

cat >"$work/sender.py" <<'PY'
# Sends crafted LLDPDUs of two neighbours on one interface every 2 s.
import os, socket, struct, sys, time
intf = sys.argv[1]
def tlv(t, body): return struct.pack('!H', (t << 9) | len(body)) + body
def org(oui, sub, body): return tlv(127, bytes.fromhex(oui) + bytes([sub]) + body)
def s(text): return text.encode()
coordinate = bytes.fromhex('05 0d 47 56 66 02 c1 c0 a0 00 01 20 00 00 01 01'.replace(' ', ''))
civic = bytes([2]) + b'DE' + bytes([1, 2]) + b'BY' + bytes([3, 1]) + b'M'  # what, country, two elements
first = b''.join([
    tlv(1, bytes([4]) + bytes.fromhex('02aabbccdd01')),
    tlv(2, bytes([7]) + s('port-7')),
    tlv(3, struct.pack('!H', 120)),
    tlv(4, b'uplink to \x01core\xff'),  # not UTF-8: served as received
    tlv(5, s('sw-one')),
    tlv(6, s('a switch of the check')),
    tlv(7, struct.pack('!HH', 0x0094, 0x0014)),
    tlv(8, bytes([5, 1, 198, 51, 100, 7]) + bytes([2]) + struct.pack('!I', 12) + bytes([0])),
    tlv(8, bytes([17, 2]) + bytes.fromhex('20010db8000000000000000000000007') + bytes([3]) + struct.pack('!I', 9)
        + bytes([10]) + bytes.fromhex('06082b06010401bf0803')),
    tlv(8, bytes([7, 6]) + bytes.fromhex('02aabbccdd01') + bytes([1]) + struct.pack('!I', 0) + bytes([0])),
    tlv(9, bytes.fromhex('deadbeef')),
    tlv(12, bytes.fromhex('0102')),
    org('0080c2', 1, struct.pack('!H', 100)),
    org('0080c2', 2, bytes([0x06]) + struct.pack('!H', 200)),
    org('0080c2', 2, bytes([0x02]) + struct.pack('!H', 201)),
    org('0080c2', 3, struct.pack('!H', 100) + bytes([4]) + s('data')),
    org('0080c2', 3, struct.pack('!H', 20) + bytes([5]) + s('voice')),
    org('0080c2', 4, bytes([2]) + bytes.fromhex('8809')),
    org('0080c2', 4, bytes([3]) + bytes.fromhex('424203')),
    org('00120f', 1, bytes([0x03]) + struct.pack('!HH', 0x6c01, 16)),
    org('00120f', 2, bytes([0x0f, 1, 4])),
    org('00120f', 3, bytes([0x03]) + struct.pack('!I', 77)),
    org('00120f', 4, struct.pack('!H', 9216)),
    org('0012bb', 1, struct.pack('!H', 0x003f) + bytes([4])),
    org('0012bb', 2, bytes([1]) + struct.pack('!I', (0b011 << 29) | (100 << 17) | (5 << 14) | (46 << 8))[:3]),
    org('0012bb', 2, bytes([2]) + struct.pack('!I', (0b001 << 29) | (101 << 17) | (3 << 14) | (24 << 8))[:3]),
    org('0012bb', 2, bytes([6]) + struct.pack('!I', (0b101 << 29) | (0 << 17) | (0 << 14) | (0 << 8))[:3]),
    org('0012bb', 2, bytes([9]) + struct.pack('!I', (0b010 << 29) | (7 << 17))[:3]),  # a type no MIB names
    org('0012bb', 3, bytes([1]) + coordinate),
    org('0012bb', 3, bytes([2, len(civic)]) + civic),
    org('0012bb', 3, bytes([3]) + s('1234567890')),
    org('0012bb', 4, bytes([0x12]) + struct.pack('!H', 250)),
    org('0012bb', 5, s('hw-1')),
    org('0012bb', 6, s('fw-2')),
    org('0012bb', 7, s('sw-3')),
    org('0012bb', 8, s('SN-4')),
    org('0012bb', 9, s('maker')),
    org('0012bb', 10, s('model-6')),
    org('0012bb', 11, s('asset-7')),
    org('00aabb', 7, bytes.fromhex('010203')),
    org('00aabb', 7, bytes.fromhex('0405')),
    org('0080c2', 99, bytes.fromhex('cafe')),
    tlv(0, b''),
])
second = b''.join([
    tlv(1, bytes([7]) + s('switch-two')),
    tlv(2, bytes([3]) + bytes.fromhex('02aabbccdd02')),
    tlv(3, struct.pack('!H', 120)),
    tlv(5, bytes.fromhex('e29c93206e616d6500')),
    org('00120f', 2, bytes([0x06, 2, 1])),  # a powered device: its port class is pClassPD
    tlv(0, b''),
])
# Once the file `gone` appears: the second neighbour says goodbye (TTL 0), and a third one
# comes with a TTL of 1 s and is heard no more, so that it ages out.
gone = sys.argv[2]
third = b''.join([tlv(1, bytes([7]) + s('brief')), tlv(2, bytes([7]) + s('p')), tlv(3, struct.pack('!H', 1)), tlv(0, b'')])
shutdown = second.replace(tlv(3, struct.pack('!H', 120)), tlv(3, struct.pack('!H', 0)))
# Values the MIBs' ranges do not hold: such objects are absent rather than out of range.
odd = b''.join([
    tlv(1, bytes([7]) + s('odd')),
    tlv(2, bytes([7]) + s('odd-port')),
    tlv(3, struct.pack('!H', 120)),
    org('0080c2', 1, struct.pack('!H', 4095)),
    org('0080c2', 2, bytes([0x06]) + struct.pack('!H', 4095)),
    org('0080c2', 3, struct.pack('!H', 4095) + bytes([3]) + s('bad')),
    org('0080c2', 3, struct.pack('!H', 0) + bytes([4]) + s('zero')),
    org('00120f', 2, bytes([0x0f, 3, 7])),
    org('00120f', 3, bytes([0x03]) + struct.pack('!I', 0xffffffff)),
    org('00aabb', 0, bytes.fromhex('00')),
    tlv(0, b''),
])
sock = socket.socket(socket.AF_PACKET, socket.SOCK_RAW)
sock.bind((intf, 0))
dst = bytes.fromhex('0180c200000e')
frames = [(bytes.fromhex('02aabbccdd01'), first), (bytes.fromhex('02aabbccdd04'), odd), (bytes.fromhex('02aabbccdd02'), second)]
while True:
    if len(frames) == 3 and os.path.exists(gone):
        sock.send(dst + bytes.fromhex('02aabbccdd02') + b'\x88\xcc' + shutdown)
        sock.send(dst + bytes.fromhex('02aabbccdd03') + b'\x88\xcc' + third)
        frames = frames[:2]
    for src, body in frames:
        sock.send(dst + src + b'\x88\xcc' + body)
    time.sleep(0.5 if len(frames) == 2 else 2)
PY
ip netns exec "$nsC" python3 "$work/sender.py" "$c0" "$work/gone" &
pids+=($!)
lldpA() { "$build/lldp" --socket "$work/a.sock" "$@"; }
lldpB() { "$build/lldp" --socket "$work/b.sock" "$@"; }

# Every neighbour heard and served through snmpd.
target=127.0.0.1:$port
for _ in $(seq 60); do
  rows=$(ip netns exec "$nsA" snmpbulkwalk -v2c -c public -m '' -On "$target" 1.0.8802.1.1.2.1.4.1.1.4 2>/dev/null | grep -c INTEGER || true)
  [[ $rows -ge 4 ]] && break
  sleep 0.5
done
[[ $rows -ge 4 ]] || { echo "$0: the walk shows $rows neighbours, not 4" >&2; tail "$work"/*.log >&2; exit 1; }

lldpA show statistics --json >"$work/stats.json"
ip netns exec "$nsA" snmpbulkwalk -v2c -c public -m '' -On -Ox -Oe -Ot "$target" 1.0.8802.1.1.2 >"$work/num.walk"
ip netns exec "$nsA" snmpbulkwalk -v2c -c public -M "$mibpath" -m ALL "$target" 1.0.8802.1.1.2 >"$work/named.walk" 2>"$work/named.err" || true
lldpA show statistics --json >"$work/stats-after.json"
lldpA show neighbors --json >"$work/neigh.json"
lldpA show local --json >"$work/local.json"
lldpA show status --json >"$work/status.json"
lldpB show neighbors --json >"$work/b-neigh.json"
ip -n "$nsA" -o link >"$work/links"
ticks=$(ip netns exec "$nsA" snmpget -v2c -c public -m '' -Ot -Oqv "$target" 1.3.6.1.2.1.1.3.0)
now=$(lldpA show neighbors --json | python3 -c 'import json, sys; print(json.load(sys.stdin)["now"])')
echo "$ticks $now" >"$work/uptime"
grep -v 'Cannot find module\|Did not find\|Unlinked OID\|Undefined identifier\|Cannot adopt OID\|MIB search path' \
  "$work/named.err" >"$work/named.warnings" || true
mv "$work/named.warnings" "$work/named.err"
[[ -n $keep ]] && echo "work directory: $work"
LLDP_BINARY=$build/lldp python3 "$top/scripts/snmp-mib-check.py" "$work" "$mibpath" "$target" "$nsA"
