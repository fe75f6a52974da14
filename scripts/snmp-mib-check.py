# Compares the walks of the LLDP MIBs with the MIB modules and with what the agent shows.
# Usage: check.py WORK-DIR MIB-PATH TARGET NS   (run by snmp-mib-check.sh)
import bisect, json, os, re, subprocess, sys

work, mibpath, target, ns = sys.argv[1:5]
problems = []
checked = 0


def problem(text):
    problems.append(text)
    print('DISAGREES: ' + text)


def load(name):
    with open(os.path.join(work, name)) as f:
        return json.load(f)


def snmp(tool, *args, mibs=False, opts=()):
    env = dict(os.environ, MIBS='')
    cmd = ['ip', 'netns', 'exec', ns, tool, '-v2c', '-c', 'public', '-t', '5', '-r', '1']
    cmd += ['-M', mibpath, '-m', 'ALL'] if mibs else ['-m', '', '-On', '-Ox', '-Oe', '-Ot']
    out = subprocess.run(cmd + list(opts) + [target] + list(args), capture_output=True, text=True, env=env)
    return out.stdout, out.stderr


def parse(text):
    """Numeric output: [(oid tuple, (type, value))]; strings as bytes."""
    rows, name = [], None
    for line in text.splitlines():
        m = re.match(r'^\.?([0-9.]+) = (.*)$', line)
        if m:
            oid = tuple(int(x) for x in m.group(1).strip('.').split('.'))
            v = m.group(2)
            if v.startswith('Hex-STRING: '):
                rows.append([oid, ('STRING', bytes.fromhex(v[12:]))])
            elif v == '""':
                rows.append([oid, ('STRING', b'')])
            elif v.startswith('STRING: '):  # -Ox leaves printable text as text
                rows.append([oid, ('STRING', v[8:].strip('"').encode())])
            elif ': ' in v:
                t, x = v.split(': ', 1)
                if t == 'OID':
                    x = tuple(int(p) for p in x.strip('.').split('.'))
                elif t in ('INTEGER', 'Gauge32', 'Counter32', 'Timeticks'):
                    x = int(x)
                rows.append([oid, (t, x)])
            elif re.fullmatch(r'\d+', v):
                rows.append([oid, ('Timeticks', int(v))])  # -Ot prints time ticks bare
            else:
                rows.append([oid, (v, None)])  # No Such Object/Instance, End of MIB
            continue
        if rows and rows[-1][1][0] == 'STRING' and re.fullmatch(r'[0-9A-Fa-f ]+', line.strip() or 'x'):
            rows[-1][1] = ('STRING', rows[-1][1][1] + bytes.fromhex(line))
    return [(o, v) for o, v in rows]


def dotted(oid):
    return '.'.join(str(x) for x in oid)


# ---- The MIB modules: names, syntax, indexes ------------------------------------------------
nodes = {}
out = subprocess.run(['snmptranslate', '-M', mibpath, '-m', 'ALL', '-Tz'], capture_output=True, text=True).stdout
for line in out.splitlines():
    m = re.match(r'^"(\S+)"\s+"([0-9.]+)"$', line)
    if m:
        nodes[tuple(int(x) for x in m.group(2).split('.'))] = m.group(1)
details = {}


def detail(oid):
    if oid not in details:
        text = subprocess.run(['snmptranslate', '-M', mibpath, '-m', 'ALL', '-Td', dotted(oid)],
                              capture_output=True, text=True).stdout
        d = {'text': text}
        for key in ('SYNTAX', 'MAX-ACCESS', 'INDEX', 'AUGMENTS'):
            m = re.search(r'^\s*' + key + r'\s+(.*)$', text, re.M)
            d[key] = m.group(1).strip() if m else ''
        details[oid] = d
    return details[oid]


def oid_of(name):
    for oid, n in nodes.items():
        if n == name:
            return oid
    return None


class Syntax:
    def __init__(self, text):
        self.text = text
        self.enums = {int(v): k for k, v in re.findall(r'(\w+)\((-?\d+)\)', text)}
        ranges = re.search(r'\(([-0-9. |]+)\)\s*$', text)
        self.ranges = []
        if ranges:
            for part in ranges.group(1).split('|'):
                lo, _, hi = part.strip().partition('..')
                self.ranges.append((int(lo), int(hi or lo)))
        if text.startswith('BITS'):
            self.kind = 'BITS'
        elif text.startswith(('INTEGER', 'Integer32')):
            self.kind = 'INTEGER'
        elif text.startswith(('Gauge32', 'Unsigned32')):
            self.kind = 'Gauge32'
        elif text.startswith('Counter32'):
            self.kind = 'Counter32'
        elif text.startswith('TimeTicks'):
            self.kind = 'Timeticks'
        elif text.startswith('OCTET STRING'):
            self.kind = 'STRING'
        elif text.startswith('OBJECT IDENTIFIER'):
            self.kind = 'OID'
        else:
            self.kind = '?' + text

    def wire(self):
        return 'STRING' if self.kind == 'BITS' else self.kind

    def fixed(self):
        return self.kind == 'STRING' and len(self.ranges) == 1 and self.ranges[0][0] == self.ranges[0][1]

    def check(self, what, value):
        """Problems of a value against the syntax (type, range, size, enumeration, bits)."""
        t, v = value
        if t != self.wire():
            return [f'{what}: {t} where the MIB says {self.text}']
        if self.kind == 'INTEGER' and self.enums and v not in self.enums:
            return [f'{what}: {v} is not one of the enumeration {self.text}']
        if self.kind in ('INTEGER', 'Gauge32') and self.ranges and not any(lo <= v <= hi for lo, hi in self.ranges):
            return [f'{what}: {v} is outside {self.text}']
        if self.kind == 'STRING' and self.ranges and not any(lo <= len(v) <= hi for lo, hi in self.ranges):
            return [f'{what}: {len(v)} octets, outside {self.text}']
        if self.kind == 'BITS':
            top = max(self.enums)
            if len(v) > top // 8 + 1:
                return [f'{what}: {len(v)} octets of BITS whose highest bit is {top}']
            for i in range(len(v) * 8):
                if v[i // 8] & (0x80 >> (i % 8)) and i not in self.enums:
                    return [f'{what}: bit {i} set, which {self.text} does not name']
        return []


def syntax_of(oid):
    return Syntax(detail(oid)['SYNTAX'])


def index_objects(entry):
    d = detail(entry)
    if d['AUGMENTS']:
        entry = oid_of(d['AUGMENTS'].strip('{} '))
        d = detail(entry)
    names = [n.strip() for n in d['INDEX'].strip('{} ').split(',') if n.strip()]
    return [(n.replace('IMPLIED', '').strip(), n.startswith('IMPLIED')) for n in names]


def decode_index(entry, index):
    """The index split by the entry's INDEX clause; problems where it does not fit."""
    parts, rest = [], list(index)
    for name, implied in index_objects(entry):
        oid = oid_of(name)
        s = syntax_of(oid)
        if not rest:
            return parts, [f'index ends before {name}']
        if s.kind in ('INTEGER', 'Gauge32', 'Timeticks'):
            v = rest.pop(0)
            errs = s.check(name, ('INTEGER' if s.kind == 'INTEGER' else s.kind, v)) if s.kind != 'Timeticks' else []
            if errs:
                return parts, errs
            parts.append((name, v))
        elif s.kind in ('STRING', 'BITS'):
            if s.fixed():
                n = s.ranges[0][0]
            elif implied:
                n = len(rest)
            else:
                n = rest.pop(0)
            if len(rest) < n or any(x > 255 for x in rest[:n]):
                return parts, [f'{name}: no string of {n} octets in the index']
            value = bytes(rest[:n])
            del rest[:n]
            errs = s.check(name, ('STRING', value))
            if errs:
                return parts, errs
            parts.append((name, value))
        else:
            return parts, [f'{name}: index syntax {s.text} not handled by this check']
    if rest:
        return parts, [f'{len(rest)} sub-identifiers left over after the index: {dotted(rest)}']
    return parts, []


# ---- The walks ------------------------------------------------------------------------------
root = (1, 0, 8802, 1, 1, 2)
walk = parse(open(os.path.join(work, 'num.walk')).read())
values = dict(walk)
oids = [o for o, _ in walk]
for a, b in zip(oids, oids[1:]):
    if not a < b:
        problem(f'walk not in order: {dotted(a)} then {dotted(b)}')
named = open(os.path.join(work, 'named.walk'), errors='replace').read()
for line in (named + open(os.path.join(work, 'named.err')).read()).splitlines():
    if re.search(r'Wrong Type|Error in|Error:|not increasing|Bad value|out of range', line):
        problem('net-snmp with the MIB files: ' + line.strip())

where = {}  # instance -> (object oid, object name, index parts)
for oid, value in walk:
    checked += 1
    obj = max((oid[:k] for k in range(len(oid), 0, -1) if oid[:k] in nodes), key=len, default=None)
    if obj is None or len(obj) < len(root) + 2:
        problem(f'{dotted(oid)}: no object of the MIB modules holds it')
        continue
    name = nodes[obj]
    d = detail(obj)
    if d['MAX-ACCESS'] not in ('read-only', 'read-write', 'read-create', 'accessible-for-notify'):
        problem(f'{dotted(oid)}: under {name}, which is {d["MAX-ACCESS"] or "not an object type"}')
        continue
    index = oid[len(obj):]
    entry = obj[:-1]
    is_column = bool(detail(entry)['INDEX'] or detail(entry)['AUGMENTS'])
    parts = []
    if is_column:
        parts, errs = decode_index(entry, index)
        for e in errs:
            problem(f'{name}.{dotted(index)}: {e}')
    elif index != (0,):
        problem(f'{name}.{dotted(index)}: a scalar instance other than .0')
    where[oid] = (obj, name, dict(parts))
    for e in syntax_of(obj).check(f'{name}.{dotted(index)}', value):
        problem(e)

# ---- What the agent shows -------------------------------------------------------------------
neighbours = load('neigh.json')
local = load('local.json')['localSystem']
seenByB = load('b-neigh.json')
status = load('status.json')['status']
uptime = int(open(os.path.join(work, 'uptime')).read().split()[0])  # hundredths, with agent's now
agentNow = float(open(os.path.join(work, 'uptime')).read().split()[1])
ifindex = {}
for line in open(os.path.join(work, 'links')):
    m = re.match(r'^(\d+): ([^:@]+)[:@]', line)
    if m:
        ifindex[m.group(2)] = int(m.group(1))

expected = {}


def name_oid(name, *index):
    return oid_of(name) + tuple(index)


def expect(name, index, t, v):
    expected[name_oid(name, *index)] = (t, v)


def string_index(b):
    return (len(b),) + tuple(b)


def hexbytes(text):
    return bytes.fromhex(text.replace(':', '').replace('-', '')) if text else b''


def bits(value, width):
    n = max(width, value.bit_length())
    out = bytearray((n + 7) // 8 or 1)
    for i in range(n):
        if value >> i & 1:
            out[i // 8] |= 0x80 >> (i % 8)
    return bytes(out)


def addr_bytes(a):
    import ipaddress
    if a['addrSubtype'] in (1, 2):
        return ipaddress.ip_address(a['address']).packed
    return hexbytes(a['address'])


def id_bytes(ident, mac_subtype):
    # MAC addresses as the JSON shows bytes; the other subtypes as text.
    return hexbytes(ident['value']) if ident['subtype'] == mac_subtype else text(ident['value'])


def text_bytes(v):
    return v.encode()


class Text(str):
    """A string as the JSON shows it: bytes that are not UTF-8 are U+FFFD there."""


def text(v):
    return Text(v)


def same(got, want):
    if isinstance(want[1], Text):
        return got[0] == 'STRING' and got[1].decode('utf-8', 'replace') == want[1]
    return got == want


def coordinate(c):
    out, fields = 0, [('latitudeResolution', 6), ('latitude', 34), ('longitudeResolution', 6), ('longitude', 34),
                      ('altitudeType', 4), ('altitudeResolution', 6), ('altitude', 30), ('datum', 8)]
    for key, width in fields:
        out = out << width | (c[key] & ((1 << width) - 1))
    return out.to_bytes(16, 'big')


INT, STR, G, OIDT = 'INTEGER', 'STRING', 'Gauge32', 'OID'
truth = lambda b: 1 if b else 2
marks = {}
for o, (obj, name, parts) in where.items():
    if name == 'lldpRemChassisIdSubtype':
        marks[(parts['lldpRemLocalPortNum'], parts['lldpRemIndex'])] = parts['lldpRemTimeMark']
for ps in neighbours['portStatus']:
    port = ifindex[ps['intfId']]
    for n in ps['remoteSystem']:
        key = (port, n['index'])
        if key not in marks:
            problem(f'neighbour {n["index"]} of {ps["intfId"]} (port {port}) has no lldpRemTable row')
            continue
        mark = marks[key]
        # The time mark is the master's sysUpTime when the neighbour last changed.
        want = uptime - round((agentNow - n['lastChangeTime']) * 100)
        if abs(mark - max(want, 0)) > 30:
            problem(f'lldpRemTimeMark of port {port} index {n["index"]}: {mark}, sysUpTime at its last change is {want}')
        row = (mark, port, n['index'])
        m = n['msap']
        expect('lldpRemChassisIdSubtype', row, INT, m['chassisIdentifier']['subtype'])
        expect('lldpRemChassisId', row, STR, id_bytes(m['chassisIdentifier'], 4))
        expect('lldpRemPortIdSubtype', row, INT, m['portIdentifier']['subtype'])
        expect('lldpRemPortId', row, STR, id_bytes(m['portIdentifier'], 3))
        expect('lldpRemPortDesc', row, STR, text(n['portDesc']))
        expect('lldpRemSysName', row, STR, text(n['sysName']))
        expect('lldpRemSysDesc', row, STR, text(n['sysDesc']))
        expect('lldpRemSysCapSupported', row, STR, bits(n['sysCapSupported'], 8))
        expect('lldpRemSysCapEnabled', row, STR, bits(n['sysCapEnabled'], 8))
        for a in n['managementAddress']:
            a = a['value']
            i = row + (a['addrSubtype'],) + string_index(addr_bytes(a))
            expect('lldpRemManAddrIfSubtype', i, INT, a['ifSubtype'])
            expect('lldpRemManAddrIfId', i, INT, a['ifId'])
            expect('lldpRemManAddrOID', i, OIDT, tuple(a['oid']) or (0, 0))
        for t in n['unknownTlv']:
            expect('lldpRemUnknownTLVInfo', row + (t['key'],), STR, hexbytes(t['value']['value']))
        for t in n['unknownOrgDefTlv']:
            k = t['key']
            expect('lldpRemOrgDefInfo', row + tuple(hexbytes(k['oui'])) + (k['subtype'], k['index']), STR,
                   hexbytes(t['value']['value']))
        if n['portVlanIdTlvReceived']:
            expect('lldpXdot1RemPortVlanId', row, INT, n['portVlanId'])
        for v in n['portAndProtocolVlan']:
            expect('lldpXdot1RemProtoVlanSupported', row + (v['key'],), INT, truth(v['value']['supported']))
            expect('lldpXdot1RemProtoVlanEnabled', row + (v['key'],), INT, truth(v['value']['enabled']))
        for v in n['vlanName']:
            expect('lldpXdot1RemVlanName', row + (v['key'],), STR, text(v['value']['name']))
        for v in n['protocolIdentityInfo']:
            expect('lldpXdot1RemProtocolId', row + (v['key'],), STR, hexbytes(v['value']['identity']))
        if n['macPhyConfigStatusTlvReceived']:
            v = n['macPhyConfigStatusInfo']
            expect('lldpXdot3RemPortAutoNegSupported', row, INT, truth(v['autoNegSupported']))
            expect('lldpXdot3RemPortAutoNegEnabled', row, INT, truth(v['autoNegEnabled']))
            expect('lldpXdot3RemPortAutoNegAdvertisedCap', row, STR, v['autoNegAdvertisedCap'].to_bytes(2, 'big'))
            expect('lldpXdot3RemPortOperMauType', row, INT, v['operMauType'])
        if n['powerViaMdiTlvReceived']:
            v = n['powerViaMdiInfo']
            expect('lldpXdot3RemPowerPortClass', row, INT, v['portClass'])  # the record keeps 1 PSE, 2 PD
            expect('lldpXdot3RemPowerMDISupported', row, INT, truth(v['pseMdiPowerSupported']))
            expect('lldpXdot3RemPowerMDIEnabled', row, INT, truth(v['pseMdiPowerEnabled']))
            expect('lldpXdot3RemPowerPairControlable', row, INT, truth(v['psePairsControlAbility']))
            if v['psePowerPair'] in (1, 2):  # outside the MIB's range: absent
                expect('lldpXdot3RemPowerPairs', row, INT, v['psePowerPair'])
            if 1 <= v['powerClass'] <= 5:
                expect('lldpXdot3RemPowerClass', row, INT, v['powerClass'])
        if n['linkAggregationTlvReceived']:
            v = n['linkAggregationInfo']
            expect('lldpXdot3RemLinkAggStatus', row, STR, bits(v['status'] & 3, 2))
            if v['portId'] <= 2**31 - 1:
                expect('lldpXdot3RemLinkAggPortId', row, INT, v['portId'])
        if n['maximumFrameSizeTlvReceived']:
            expect('lldpXdot3RemMaxFrameSize', row, INT, n['maximumFrameSizeInfo'])
        if n['medCapabilitiesTlvReceived']:
            v = n['medCapabilitiesInfo']
            expect('lldpXMedRemCapSupported', row, STR, bits(v['capabilities'], 6))
            expect('lldpXMedRemDeviceClass', row, INT, v['deviceType'])
            current = 1
            if n['networkPolicyTlv']:
                current |= 2
            loc = n['locationId']
            if loc['coordinatePresent'] or loc['civicAddressPresent'] or loc['elinPresent']:
                current |= 4
            power = [t for t in n['unknownOrgDefTlv'] if t['key']['oui'] == '00-12-bb' and t['key']['subtype'] == 4]
            if power:
                current |= 8 if hexbytes(power[0]['value']['value'])[0] >> 6 == 0 else 16
            inv = ['hardwareRevisionTlvInfo', 'firmwareRevisionTlvInfo', 'softwareRevisionTlvInfo',
                   'serialNumberTlvInfo', 'manufacturerNameTlvInfo', 'modelNameTlvInfo', 'assetIDTlvInfo']
            if any(n[k] for k in inv):
                current |= 32
            expect('lldpXMedRemCapCurrent', row, STR, bits(current, 6))
            for p in n['networkPolicyTlv']:
                v = p['value']
                if v['appType'] > 8:
                    continue  # PolicyAppType names types 0 to 8: the MIB has no row for this one
                i = row + string_index(bits(1 << v['appType'], 1))
                expect('lldpXMedRemMediaPolicyVlanID', i, INT, v['vlanId'])
                expect('lldpXMedRemMediaPolicyPriority', i, INT, v['l2Priority'])
                expect('lldpXMedRemMediaPolicyDscp', i, INT, v['dscp'])
                expect('lldpXMedRemMediaPolicyUnknown', i, INT, truth(v['unknownPolicy']))
                expect('lldpXMedRemMediaPolicyTagged', i, INT, truth(v['tagged']))
            cols = ['lldpXMedRemHardwareRev', 'lldpXMedRemFirmwareRev', 'lldpXMedRemSoftwareRev', 'lldpXMedRemSerialNum',
                    'lldpXMedRemMfgName', 'lldpXMedRemModelName', 'lldpXMedRemAssetID']
            for c, k in zip(cols, inv):
                if n[k]:
                    expect(c, row, STR, text(n[k]))
            if loc['elinPresent']:
                expect('lldpXMedRemLocationInfo', row + (4,), STR, text(loc['elin']))
            if loc['civicAddressPresent']:
                c = loc['civicAddress']
                elements = b''.join(bytes([e['caType'], len(text_bytes(e['caValue']))]) + text_bytes(e['caValue'])
                                    for e in c['caElements'])
                body = bytes([c['what']]) + text_bytes(c['countryCode']) + elements
                expect('lldpXMedRemLocationInfo', row + (3,), STR, bytes([len(body)]) + body)
            if loc['coordinatePresent']:
                expect('lldpXMedRemLocationInfo', row + (2,), STR, coordinate(loc['coordinate']))
            if power:
                b = hexbytes(power[0]['value']['value'])
                kind, source, prio, watts = b[0] >> 6, b[0] >> 4 & 3, b[0] & 15, b[1] << 8 | b[2]
                expect('lldpXMedRemXPoEDeviceType', row, INT, {0: 2, 1: 3}.get(kind, 1))
                pri = prio + 1 if prio <= 3 else 1
                if kind == 0:
                    expect('lldpXMedRemXPoEPSEPowerAv', row, G, watts)
                    expect('lldpXMedRemXPoEPSEPowerSource', row, INT, source + 1 if source <= 2 else 1)
                    expect('lldpXMedRemXPoEPSEPowerPriority', row, INT, pri)
                elif kind == 1:
                    expect('lldpXMedRemXPoEPDPowerReq', row, G, watts)
                    expect('lldpXMedRemXPoEPDPowerSource', row, INT, source + 1)
                    expect('lldpXMedRemXPoEPDPowerPriority', row, INT, pri)

# The local system, and the addresses B hears from A.
expect('lldpLocChassisIdSubtype', (0,), INT, local['chassisIdentifier']['subtype'])
expect('lldpLocChassisId', (0,), STR, id_bytes(local['chassisIdentifier'], 4))
expect('lldpLocSysName', (0,), STR, text(local['sysName']))
expect('lldpLocSysDesc', (0,), STR, text(local['sysDesc']))
expect('lldpLocSysCapSupported', (0,), STR, bits(local['sysCapSupported'], 8))
expect('lldpLocSysCapEnabled', (0,), STR, bits(local['sysCapEnabled'], 8))
for lp in local['localPort']:
    port = ifindex[lp['intfId']]
    expect('lldpLocPortIdSubtype', (port,), INT, lp['portIdentifier']['subtype'])
    expect('lldpLocPortId', (port,), STR, id_bytes(lp['portIdentifier'], 3))
    expect('lldpLocPortDesc', (port,), STR, text(lp['portDesc']))
    for p in lp['localNetworkPolicyTlv']:
        v = p['value']
        i = (port,) + string_index(bits(1 << v['appType'], 1))
        expect('lldpXMedLocMediaPolicyVlanID', i, INT, v['vlanId'])
        expect('lldpXMedLocMediaPolicyPriority', i, INT, v['l2Priority'])
        expect('lldpXMedLocMediaPolicyDscp', i, INT, v['dscp'])
        expect('lldpXMedLocMediaPolicyUnknown', i, INT, truth(v['unknownPolicy']))
        expect('lldpXMedLocMediaPolicyTagged', i, INT, truth(v['tagged']))
heard = [n for ps in seenByB['portStatus'] for n in ps['remoteSystem']]
if len(heard) != 1:
    problem(f'B hears {len(heard)} neighbours, not A alone')
else:
    for a in heard[0]['managementAddress']:
        a = a['value']
        i = (a['addrSubtype'],) + string_index(addr_bytes(a))
        expect('lldpLocManAddrLen', i, INT, len(addr_bytes(a)) + 1)
        expect('lldpLocManAddrIfSubtype', i, INT, a['ifSubtype'])
        expect('lldpLocManAddrIfId', i, INT, a['ifId'])
        expect('lldpLocManAddrOID', i, OIDT, tuple(a['oid']) or (0, 0))

# Counters: the walk lies between the two readings of the agent's.
before, after = load('stats.json'), load('stats-after.json')
for name, key in [('lldpStatsRemTablesInserts', 'remTablesInserts'), ('lldpStatsRemTablesDeletes', 'remTablesDeletes'),
                  ('lldpStatsRemTablesDrops', 'remTablesDrops'), ('lldpStatsRemTablesAgeouts', 'remTablesAgeouts')]:
    got = values.get(name_oid(name, 0))
    if got is None:
        problem(f'{name}.0 is not in the walk')
    elif got[1] != status[key]:
        problem(f'{name}.0 is {got[1]}; the agent shows {status[key]}')
for name, key in [('lldpStatsTxPortFramesTotal', 'txFramesTotal'), ('lldpStatsRxPortFramesDiscardedTotal', 'rxFramesDiscardedTotal'),
                  ('lldpStatsRxPortFramesErrors', 'rxFramesErrors'), ('lldpStatsRxPortFramesTotal', 'rxFramesTotal'),
                  ('lldpStatsRxPortTLVsDiscardedTotal', 'rxTLVsDiscardedTotal'),
                  ('lldpStatsRxPortTLVsUnrecognizedTotal', 'rxTLVsUnrecognizedTotal'), ('lldpStatsRxPortAgeoutsTotal', 'rxAgeoutsTotal')]:
    for b, a in zip(before['port'], after['port']):
        o = name_oid(name, ifindex[b['intfId']])
        got = values.get(o)
        lo, hi = b['portStatus'][key], a['portStatus'][key]
        expected.pop(o, None)
        if got is None:
            problem(f'{name}.{ifindex[b["intfId"]]} is not in the walk')
        elif not lo <= got[1] <= hi:
            problem(f'{name}.{ifindex[b["intfId"]]} is {got[1]}; the agent shows {lo} to {hi}')

# ---- Compare --------------------------------------------------------------------------------
checkedSubtrees = [oid_of(n) for n in ['lldpRemoteSystemsData', 'lldpXdot1RemoteData', 'lldpXdot3RemoteData',
                                       'lldpXMedRemoteData', 'lldpLocalSystemData', 'lldpXMedLocalData']]
checkedSubtrees = [s for s in checkedSubtrees if s]
for o, v in sorted(expected.items()):
    label = where[o][1] + '.' + dotted(o[len(where[o][0]):]) if o in where else dotted(o)
    if o not in values:
        problem(f'{label} (agent shows {v[1]!r}) is not in the walk')
    elif not same(values[o], v):
        problem(f'{label} is {values[o][1]!r}; the agent shows {v[1]!r}')
for o, v in walk:
    if o in expected or not any(o[:len(s)] == s for s in checkedSubtrees):
        continue
    if o in where and where[o][1].startswith(('lldpLoc', 'lldpXdot1Loc', 'lldpXdot3Loc', 'lldpXMedLoc')) \
            and not where[o][1].startswith(('lldpLocManAddr', 'lldpXMedLocMediaPolicy')):
        continue  # local objects the agent's JSON does not spell out
    label = where[o][1] + '.' + dotted(o[len(where[o][0]):]) if o in where else dotted(o)
    problem(f'{label} = {v[1]!r} is in the walk, but the agent shows no such data')

# ---- GET and GETNEXT agree with the walk ----------------------------------------------------
def in_chunks(items, n=16):
    for i in range(0, len(items), n):
        yield items[i:i + n]


for chunk in in_chunks(oids):
    got = dict(parse(snmp('snmpget', *[dotted(o) for o in chunk])[0]))
    for o in chunk:
        checked += 1
        g = got.get(o)
        if values[o][0] == 'Counter32' and g and g[0] == 'Counter32' and g[1] >= values[o][1]:
            continue  # counted on since the walk
        if g != values[o]:
            problem(f'GET {dotted(o)}: {got.get(o)}; the walk has {values[o]}')
# Bulk walks with one and with many repetitions find the same objects.
for reps in ('-Cr1', '-Cr200'):
    other = [o for o, _ in parse(snmp('snmpbulkwalk', dotted(root), opts=[reps])[0])]
    checked += 1
    if other != oids:
        problem(f'snmpbulkwalk {reps} finds {len(other)} objects, the walk {len(oids)}: first difference at '
                f'{next((dotted(a) for a, b in zip(other, oids) if a != b), "the end")}')
# TimeFilter: every row is found under an earlier time mark, none under a later one.
for o, (obj, name, parts) in where.items():
    if 'lldpRemTimeMark' not in parts or parts['lldpRemTimeMark'] == 0:
        continue
    mark = parts['lldpRemTimeMark']
    i = len(obj)
    for m, hit in [(0, True), (mark - 1, True), (mark + 1, False)]:
        q = o[:i] + (m,) + o[i + 1:]
        r = parse(snmp('snmpget', dotted(q))[0])
        checked += 1
        if hit and (not r or r[0][1] != values[o]):
            problem(f'GET {name} under time mark {m} (row at {mark}): {r[0][1] if r else None}, not {values[o]}')
        if not hit and r and r[0][1][1] is not None:
            problem(f'GET {name} under the later time mark {m} (row at {mark}) finds {r[0][1]}')

sorted_oids = sorted(oids)


def following(x):
    i = bisect.bisect_right(sorted_oids, x)
    return sorted_oids[i] if i < len(sorted_oids) else None


odd = set()
for o in oids:
    odd.add(o + (0,))
    odd.add(o[:-1] + (o[-1] + 1,))
    if o[-1] > 0:
        odd.add(o[:-1] + (o[-1] - 1, 4294967295))
    for k in range(len(root) + 2, len(o)):
        odd.add(o[:k])
        odd.add(o[:k] + (4294967295,))
odd = sorted(odd)
for chunk in in_chunks(odd):
    got = parse(snmp('snmpgetnext', *[dotted(o) for o in chunk])[0])
    if len(got) != len(chunk):
        problem(f'GETNEXT of {len(chunk)} names answered {len(got)}')
        continue
    for x, (o, v) in zip(chunk, got):
        checked += 1
        want = following(x)
        if want is None:
            if o[:len(root)] == root:
                problem(f'GETNEXT {dotted(x)}: {dotted(o)}, past the end of the walk')
        elif o != want or (v != values[want] and values[want][0] != 'Counter32'):
            problem(f'GETNEXT {dotted(x)}: {dotted(o)} = {v}; the walk has {dotted(want)} next')

# ---- Neighbours leaving: the table counters, the last change time, the rows ------------------
def agent(*args):
    out = subprocess.run([os.environ['LLDP_BINARY'], '--socket', os.path.join(work, 'a.sock')] + list(args) + ['--json'],
                         capture_output=True, text=True)
    return json.loads(out.stdout)


def table_objects():
    rows = parse(snmp('snmpbulkwalk', dotted(oid_of('lldpStatistics')))[0])
    rows += parse(snmp('snmpbulkwalk', dotted(oid_of('lldpRemChassisIdSubtype')))[0])
    return dict(rows)


inserts = status['remTablesInserts']
open(os.path.join(work, 'gone'), 'w').close()
for _ in range(40):
    import time
    time.sleep(0.5)
    st = agent('show', 'status')['status']
    if st['remTablesDeletes'] >= 1 and st['remTablesAgeouts'] >= 1:
        break
now = table_objects()
st = agent('show', 'status')['status']
nb = agent('show', 'neighbors')
ticks = parse(snmp('snmpget', '1.3.6.1.2.1.1.3.0')[0])[0][1][1]
checked += 1
if st['remTablesDeletes'] < 1 or st['remTablesAgeouts'] < 1 or st['remTablesInserts'] != inserts + 1:
    problem(f'the agent did not count a goodbye and an age-out: {st}')
for name, key in [('lldpStatsRemTablesInserts', 'remTablesInserts'), ('lldpStatsRemTablesDeletes', 'remTablesDeletes'),
                  ('lldpStatsRemTablesDrops', 'remTablesDrops'), ('lldpStatsRemTablesAgeouts', 'remTablesAgeouts')]:
    got = now.get(name_oid(name, 0))
    if got is None or got[1] != st[key]:
        problem(f'after a goodbye and an age-out, {name}.0 is {got and got[1]}; the agent shows {st[key]}')
last = now.get(name_oid('lldpStatsRemTablesLastChangeTime', 0))
want = ticks - round((nb['now'] - st['remTablesLastChangeTime']) * 100)
if last is None or abs(last[1] - want) > 30:
    problem(f'lldpStatsRemTablesLastChangeTime.0 is {last and last[1]}, sysUpTime at the last change is {want}')
rows = sorted(o[len(oid_of('lldpRemChassisIdSubtype')):] for o in now if o[:len(oid_of('lldpRemChassisIdSubtype'))] == oid_of('lldpRemChassisIdSubtype'))
left = sorted((marks[(ifindex[ps['intfId']], n['index'])], ifindex[ps['intfId']], n['index'])
              for ps in nb['portStatus'] for n in ps['remoteSystem'] if (ifindex[ps['intfId']], n['index']) in marks)
if rows != left or len(left) != sum(len(ps['remoteSystem']) for ps in nb['portStatus']):
    problem(f'after a goodbye and an age-out the lldpRemTable rows are {rows}; the agent shows {left}')
for name in ['lldpStatsRxPortAgeoutsTotal']:
    total = sum(v[1] for o, v in now.items() if o[:len(oid_of(name))] == oid_of(name))
    if total < 1:
        problem(f'{name}: no port counts the age-out')

print(f'{len(problems)} disagreements in {checked} checks of {len(walk)} objects')
sys.exit(1 if problems else 0)
