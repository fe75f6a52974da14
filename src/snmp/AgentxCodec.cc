// AgentX packets through net-snmp's codec. Debian's libsnmp-dev ships the agent library that
// holds the AgentX codec but not its header, so the three entry points are declared here; they
// have kept these signatures for many releases.
#include "snmp/AgentxCodec.h"

#include <net-snmp/net-snmp-config.h>
#include <net-snmp/net-snmp-includes.h>

#include <cstdlib>
#include <cstring>
#include <memory>

extern "C" {
int agentx_parse(netsnmp_session* session, netsnmp_pdu* pdu, u_char* data, size_t len);
int agentx_realloc_build(netsnmp_session* session, netsnmp_pdu* pdu, u_char** buf, size_t* buf_len, size_t* out_len);
int agentx_check_packet(u_char* packet, size_t packet_len);
}

namespace Snmp::Agentx {

namespace {

// The AgentX protocol version as net-snmp marks its sessions and PDUs.
constexpr long kNetSnmpAgentxVersion = 0xc1;

struct PduFree {
  void operator()(netsnmp_pdu* pdu) const { snmp_free_pdu(pdu); }
};
using PduPtr = std::unique_ptr<netsnmp_pdu, PduFree>;

std::vector<oid> toNetSnmp(const Oid& in) { return std::vector<oid>(in.begin(), in.end()); }

Oid fromNetSnmp(const oid* in, size_t len) {
  Oid out;
  out.reserve(len);
  for (size_t i = 0; i < len; ++i) out.push_back(static_cast<SubId>(in[i]));
  return out;
}

netsnmp_session& codecSession() {
  static netsnmp_session session = [] {
    netsnmp_session s;
    std::memset(&s, 0, sizeof s);
    s.version = kNetSnmpAgentxVersion;
    return s;
  }();
  return session;
}

bool addValue(netsnmp_pdu* pdu, const VarBind& vb) {
  const std::vector<oid> name = toNetSnmp(vb.name);
  switch (vb.exception) {
    case Exception::noSuchObject: return snmp_pdu_add_variable(pdu, name.data(), name.size(), SNMP_NOSUCHOBJECT, nullptr, 0);
    case Exception::noSuchInstance:
      return snmp_pdu_add_variable(pdu, name.data(), name.size(), SNMP_NOSUCHINSTANCE, nullptr, 0);
    case Exception::endOfMibView: return snmp_pdu_add_variable(pdu, name.data(), name.size(), SNMP_ENDOFMIBVIEW, nullptr, 0);
    case Exception::none: break;
  }
  const Value& v = vb.value;
  switch (v.type) {
    case ValueType::integer: {
      const long n = static_cast<long>(v.number);
      return snmp_pdu_add_variable(pdu, name.data(), name.size(), ASN_INTEGER, &n, sizeof n);
    }
    case ValueType::counter32:
    case ValueType::gauge32:
    case ValueType::timeTicks: {
      const u_long n = static_cast<u_long>(v.number);
      const u_char type = v.type == ValueType::counter32 ? ASN_COUNTER : v.type == ValueType::gauge32 ? ASN_GAUGE : ASN_TIMETICKS;
      return snmp_pdu_add_variable(pdu, name.data(), name.size(), type, &n, sizeof n);
    }
    case ValueType::octetString:
      return snmp_pdu_add_variable(pdu, name.data(), name.size(), ASN_OCTET_STR, v.bytes.data(), v.bytes.size());
    case ValueType::objectId: {
      const std::vector<oid> value = toNetSnmp(v.oid);
      return snmp_pdu_add_variable(pdu, name.data(), name.size(), ASN_OBJECT_ID, value.data(), value.size() * sizeof(oid));
    }
  }
  return false;
}

bool valueOf(const netsnmp_variable_list* var, VarBind& vb) {
  vb.name = fromNetSnmp(var->name, var->name_length);
  switch (var->type) {
    case SNMP_NOSUCHOBJECT: vb.exception = Exception::noSuchObject; return true;
    case SNMP_NOSUCHINSTANCE: vb.exception = Exception::noSuchInstance; return true;
    case SNMP_ENDOFMIBVIEW: vb.exception = Exception::endOfMibView; return true;
    case ASN_NULL: return true;
    case ASN_INTEGER: vb.value = Value::integer(static_cast<int32_t>(*var->val.integer)); return true;
    case ASN_COUNTER: vb.value = Value::counter32(static_cast<uint32_t>(*var->val.integer)); return true;
    case ASN_GAUGE: vb.value = Value::gauge32(static_cast<uint32_t>(*var->val.integer)); return true;
    case ASN_TIMETICKS: vb.value = Value::timeTicks(static_cast<uint32_t>(*var->val.integer)); return true;
    case ASN_OCTET_STR:
    case ASN_IPADDRESS:
    case ASN_OPAQUE:
      vb.value = Value::octets(std::string(reinterpret_cast<const char*>(var->val.string), var->val_len));
      return true;
    case ASN_OBJECT_ID: vb.value = Value::objectId(fromNetSnmp(var->val.objid, var->val_len / sizeof(oid))); return true;
    default:
      // Counter64 and other types the LLDP MIBs never carry: kept as a null value.
      return true;
  }
}

}  // namespace

size_t packetLength(const uint8_t* data, size_t size) {
  if (size < kHeaderSize) return 0;
  const int length = agentx_check_packet(const_cast<u_char*>(data), size);
  return length > 0 ? static_cast<size_t>(length) : 0;
}

bool decode(const uint8_t* data, size_t size, Pdu& out) {
  PduPtr pdu(static_cast<netsnmp_pdu*>(std::calloc(1, sizeof(netsnmp_pdu))));
  if (!pdu) return false;
  pdu->version = kNetSnmpAgentxVersion;
  if (agentx_parse(&codecSession(), pdu.get(), const_cast<u_char*>(data), size) != 0) return false;
  out = Pdu{};
  out.type = static_cast<PduType>(pdu->command);
  out.flags = static_cast<uint8_t>(pdu->flags & 0xff);
  out.sessionId = static_cast<uint32_t>(pdu->sessid);
  out.transactionId = static_cast<uint32_t>(pdu->transid);
  out.packetId = static_cast<uint32_t>(pdu->reqid);
  switch (out.type) {
    case kResponse:
      out.sysUpTime = static_cast<uint32_t>(pdu->time);
      out.error = static_cast<uint16_t>(pdu->errstat);
      out.index = static_cast<uint16_t>(pdu->errindex);
      break;
    case kGetBulk:
      out.nonRepeaters = static_cast<uint16_t>(pdu->non_repeaters);
      out.maxRepetitions = static_cast<uint16_t>(pdu->max_repetitions);
      break;
    case kClose: out.reason = static_cast<uint8_t>(pdu->errstat); break;
    case kOpen:
    case kRegister:
      out.timeout = static_cast<uint8_t>(pdu->time);
      out.priority = static_cast<uint8_t>(pdu->priority);
      if (const netsnmp_variable_list* var = pdu->variables) {
        (out.type == kOpen ? out.id : out.subtree) = fromNetSnmp(var->name, var->name_length);
        if (out.type == kOpen && var->type == ASN_OCTET_STR) {
          out.description.assign(reinterpret_cast<const char*>(var->val.string), var->val_len);
        }
      }
      return true;
    default: break;
  }
  for (const netsnmp_variable_list* var = pdu->variables; var; var = var->next_variable) {
    if (out.type == kGet || out.type == kGetNext || out.type == kGetBulk) {
      SearchRange range;
      range.start = fromNetSnmp(var->name, var->name_length);
      range.include = var->type == ASN_PRIV_INCL_RANGE;
      if (var->val.objid && var->val_len >= sizeof(oid)) range.end = fromNetSnmp(var->val.objid, var->val_len / sizeof(oid));
      // The null identifier (no bound) comes as 0.0.
      if (range.end == Oid{0, 0}) range.end.clear();
      out.ranges.push_back(std::move(range));
      continue;
    }
    VarBind vb;
    if (!valueOf(var, vb)) return false;
    out.varBinds.push_back(std::move(vb));
  }
  return true;
}

bool encode(const Pdu& in, std::string& out) {
  PduPtr pdu(snmp_pdu_create(in.type));
  if (!pdu) return false;
  pdu->version = kNetSnmpAgentxVersion;
  pdu->flags = in.flags;
  pdu->sessid = in.sessionId;
  pdu->transid = in.transactionId;
  pdu->reqid = in.packetId;
  pdu->errstat = 0;
  pdu->errindex = 0;
  switch (in.type) {
    case kOpen: {
      pdu->time = in.timeout;
      const std::vector<oid> id = toNetSnmp(in.id);
      snmp_pdu_add_variable(pdu.get(), id.data(), id.size(), ASN_OCTET_STR, in.description.data(), in.description.size());
      break;
    }
    case kClose: pdu->errstat = in.reason; break;
    case kRegister: {
      pdu->time = in.timeout;
      pdu->priority = in.priority;
      const std::vector<oid> subtree = toNetSnmp(in.subtree);
      snmp_add_null_var(pdu.get(), subtree.data(), subtree.size());
      break;
    }
    case kResponse:
      pdu->time = in.sysUpTime;
      pdu->errstat = in.error;
      pdu->errindex = in.index;
      break;
    case kGetBulk:
      pdu->non_repeaters = in.nonRepeaters;
      pdu->max_repetitions = in.maxRepetitions;
      break;
    default: break;
  }
  for (const SearchRange& range : in.ranges) {
    const std::vector<oid> start = toNetSnmp(range.start);
    const std::vector<oid> end = toNetSnmp(range.end);
    snmp_pdu_add_variable(pdu.get(), start.data(), start.size(), range.include ? ASN_PRIV_INCL_RANGE : ASN_PRIV_EXCL_RANGE,
                          end.data(), end.size() * sizeof(oid));
  }
  for (const VarBind& vb : in.varBinds) {
    if (!addValue(pdu.get(), vb)) return false;
  }
  size_t size = 256, length = 0;
  u_char* buffer = static_cast<u_char*>(std::malloc(size));
  if (!buffer) return false;
  const int rc = agentx_realloc_build(&codecSession(), pdu.get(), &buffer, &size, &length);
  if (rc == 0) out.append(reinterpret_cast<const char*>(buffer), length);
  std::free(buffer);
  return rc == 0;
}

}  // namespace Snmp::Agentx
