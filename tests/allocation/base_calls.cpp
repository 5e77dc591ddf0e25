// SPDX-License-Identifier: LicenseRef-qxkernel
#include "calls.hpp"

#include "errinfo.hpp"
#include "prop.hpp"
#include "qxcoordhash.hpp"
#include "qxexception.hpp"
#include "qxhash.hpp"
#include "qxnumber.hpp"
#include "qxrun.hpp"

#include <map>

namespace qxtest {

namespace {

const std::string longName = "a_name_that_is_longer_than_what_a_string_keeps_in_itself";

void showProp(std::ostream& out, const qxbase::Prop& prop)
{
    for (const std::string& key : prop.getKeys()) {
        out << key << '=';
        const boost::any& value = prop.getAny(key);
        if (const auto* number = boost::any_cast<int>(&value))
            out << *number;
        else if (const auto* text = boost::any_cast<std::string>(&value))
            out << *text;
        out << ';';
    }
    try {
        prop.assertChecked();
        out << "checked";
    } catch (const qxbase::Exception&) {
    }
}

qxbase::Prop propWithCheck()
{
    qxbase::Prop prop;
    prop.setString(longName, "second");
    prop.setCheck(longName, boost::shared_ptr<const qxbase::Check>(
                                new qxbase::ChkStringToIndex("first", {{"first", longName + "1"}, {"second", longName + "2"}})));
    return prop;
}

QxHashMap<std::string, std::string> map()
{
    QxHashMap<std::string, std::string> m;
    for (const char* key : {"one", "two"})
        m.insert(key + longName, longName);
    return m;
}

void showMap(std::ostream& out, const QxHashMap<std::string, std::string>& m)
{
    std::map<std::string, std::string> sorted;
    for (const auto& entry : m)
        sorted[entry.key] = entry.value;
    for (const auto& [key, value] : sorted)
        out << key << '=' << value << ';';
    out << m.size();
}

void showErrors(std::ostream& out, const ErrInfo& errors)
{
    for (std::size_t i = 0; i < errors.size(); ++i)
        out << errors.getFile(i) << ':' << errors.get(i, "k") << ';';
}

ErrInfo errors()
{
    ErrInfo e;
    e.newLine(longName, 1);
    e["k"] = longName;
    return e;
}

void showException(std::ostream& out, const qxbase::Exception& e) { out << e.toString(); }

struct Points
{
    CoordHashMap table{4, 1e-3, 2, false, corner, corner};
    int index = -7;
    static constexpr double corner[] = {0.0, 0.0};
};

struct Log
{
    qxutil::RunListener listener;
    qxutil::RunInfo info{&listener};
    qxutil::RunLog log{info};
};

void showLog(std::ostream& out, const Log& l) { out << l.log.getTitle() << '|' << l.log.getParamName() << '|' << l.log.getParam(); }

} // namespace

std::vector<Call> baseCalls()
{
    const auto prop = [] { return std::make_shared<qxbase::Prop>(propWithCheck()); };
    return Module("base", "bad_alloc")
        .add("Prop setString", fresh(qxbase::Prop()), [](auto& p) { p.setString(longName, longName); }, showProp)
        .add("Prop setString again", prop, [](auto& p) { p.setString(longName, longName + "2"); }, showProp)
        .add("Prop setCheck", fresh(qxbase::Prop()),
             [](auto& p) { p.setCheck(longName, boost::shared_ptr<const qxbase::Check>(new qxbase::ChkIntInterval(1, 2))); }, showProp)
        .add("Prop check", prop, [](auto& p) { p.check(longName); }, showProp)
        .add("Prop check of a default", [] {
                 auto p = std::make_shared<qxbase::Prop>();
                 p->setCheck("n", boost::shared_ptr<const qxbase::Check>(new qxbase::ChkIntInterval(3, 1, 5)));
                 return p;
             }, [](auto& p) { p.check("n"); }, showProp)
        .add("Prop getKeys", prop, [](auto& p) { p.getKeys(); }, showProp)
        .add("QxHashMap insert", fresh(map()), [](auto& m) { m.insert("three" + longName, longName); }, showMap)
        .add("QxHashMap insert with growth", [] {
                 auto m = std::make_shared<QxHashMap<std::string, std::string>>(map());
                 while (m->size() < m->getGrowLimit())
                     m->insert(longName + std::to_string(m->size()), longName);
                 return m;
             }, [](auto& m) { m.insert("three" + longName, longName); }, showMap)
        .add("QxHashMap resize", fresh(map()), [](auto& m) { m.resize(50); }, showMap)
        .add("CoordHashMap insert", [] {
                 auto p = std::make_shared<Points>();
                 for (int i = 0; i < 8; ++i) {
                     const double at[] = {0.5 * i, 1.0};
                     p->table.insert(at, i);
                 }
                 return p;
             }, [](Points& p) {
                 const double at[] = {4.0, 1.0};
                 p.index = p.table.insert(at, 8);
             }, [](std::ostream& out, const Points& p) { out << p.index; })
        .add("Exception", fresh(qxbase::Exception()),
             [](auto& e) { e = qxbase::Exception(longName, 1, longName, longName, longName); }, showException)
        .add("Exception add", fresh(qxbase::Exception("file", 1, longName)),
             [](auto& e) { e.add(longName, 2, longName, {{longName, longName}, {longName + "2", longName}}); }, showException)
        .add("Exception toString", fresh(qxbase::Exception("file", 1, longName)), [](auto& e) { e.toString(); }, showException)
        .add("ErrInfo newLine", fresh(errors()), [](auto& e) { e.newLine(longName, 3); }, showErrors)
        .add("ErrInfo append", fresh(errors()), [](auto& e) { e.append(errors()); }, showErrors)
        .add("ErrInfo makeException", fresh(errors()), [](auto& e) { e.makeException(); }, showErrors)
        .add("RunLog init", [] { return std::make_shared<Log>(); }, [](Log& l) { l.log.init(longName); }, showLog)
        .add("RunLog setParam", [] { return std::make_shared<Log>(); }, [](Log& l) { l.log.setParam(longName, 3.0); }, showLog)
        .add("appendDouble", fresh(std::string("123456789012345")), [](auto& s) { qxutil::appendDouble(s, 0.1234567890123456); },
             [](auto& out, auto& s) { out << s; })
        .calls();
}

} // namespace qxtest
