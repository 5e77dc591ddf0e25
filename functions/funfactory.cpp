// SPDX-License-Identifier: LicenseRef-qxkernel
#include "funfactory.hpp"

#include "evalfun_basic.hpp"
#include "evalfun_binary.hpp"
#include "evalfun_hyp.hpp"
#include "evalfun_spec.hpp"
#include "evalfun_trig.hpp"
#include "qxexception.hpp"

#include <boost/make_shared.hpp>

FunObjPtr makeConstPow(double e) { return boost::make_shared<ConstPowFun>(e); }

FunObjPtr makeFunObj(FunId id)
{
    switch (id) {
    case ABS:    return boost::make_shared<AbsFun>();
    case AND:    return boost::make_shared<AndFun>();
    case COS:    return boost::make_shared<CosFun>();
    case EQ:     return boost::make_shared<EQFun>();
    case EXP:    return boost::make_shared<ExpFun>();
    case GE:     return boost::make_shared<GEFun>();
    case GT:     return boost::make_shared<GTFun>();
    case LE:     return boost::make_shared<LEFun>();
    case LOG:    return boost::make_shared<LogFun>();
    case LT:     return boost::make_shared<LTFun>();
    case MINUS:  return boost::make_shared<MinusFun>();
    case NE:     return boost::make_shared<NEFun>();
    case NOT:    return boost::make_shared<UNotFun>();
    case OR:     return boost::make_shared<OrFun>();
    case PLUS:   return boost::make_shared<PlusFun>();
    case PLUSSQ: return boost::make_shared<PlusSqFun>();
    case POW:    return boost::make_shared<PowFun>();
    case POWM2:  return makeConstPow(-2.0);
    case POWM1:  return makeConstPow(-1.0);
    case POW2:   return makeConstPow(2.0);
    case POW3:   return makeConstPow(3.0);
    case POW4:   return makeConstPow(4.0);
    case DIV:    return boost::make_shared<DivFun>();
    case SIGN:   return boost::make_shared<SignFun>();
    case SIN:    return boost::make_shared<SinFun>();
    case SQRT:   return boost::make_shared<SqrtFun>();
    case TIMES:  return boost::make_shared<MultFun>();
    case UMINUS: return boost::make_shared<UMinusFun>();
    case UPLUS:  return boost::make_shared<UPlusFun>();
    }
    QX_RAISE("evalfun", "Evaluation_internal_error", "FunId", static_cast<int>(id));
}

int funArity(FunId id) { return id >= ABS && id <= UPLUS ? makeFunObj(id)->nArgs() : 0; }

void makeStandardFunctions(std::vector<FunObjPtr>& functions)
{
    functions = {
        boost::make_shared<SignFun>(),  boost::make_shared<ExpFun>(),   boost::make_shared<SqrtFun>(),
        boost::make_shared<ArgFun>(),   boost::make_shared<RealDotFun>(), boost::make_shared<AbsFun>(),
        boost::make_shared<RealFun>(),  boost::make_shared<ImagFun>(),  boost::make_shared<ConjFun>(),
        boost::make_shared<LogFun>(),   boost::make_shared<Log10Fun>(), boost::make_shared<Log2Fun>(),
        boost::make_shared<ErfFun>(),   boost::make_shared<RoundFun>(), boost::make_shared<CeilFun>(),
        boost::make_shared<FloorFun>(), boost::make_shared<FixFun>(),   boost::make_shared<MinFun>(),
        boost::make_shared<MaxFun>(),   boost::make_shared<ModFun>(),   boost::make_shared<AcosFun>(),
        boost::make_shared<AcotFun>(),  boost::make_shared<AcscFun>(),  boost::make_shared<AsecFun>(),
        boost::make_shared<AsinFun>(),  boost::make_shared<AtanFun>(),  boost::make_shared<CosFun>(),
        boost::make_shared<CotFun>(),   boost::make_shared<CscFun>(),   boost::make_shared<SecFun>(),
        boost::make_shared<SinFun>(),   boost::make_shared<TanFun>(),   boost::make_shared<Atan2Fun>(),
        boost::make_shared<AcoshFun>(), boost::make_shared<AcothFun>(), boost::make_shared<AcschFun>(),
        boost::make_shared<AsechFun>(), boost::make_shared<AsinhFun>(), boost::make_shared<AtanhFun>(),
        boost::make_shared<CoshFun>(),  boost::make_shared<CothFun>(),  boost::make_shared<CschFun>(),
        boost::make_shared<SechFun>(),  boost::make_shared<SinhFun>(),  boost::make_shared<TanhFun>(),
    };
    for (const char* name : {"bessel", "besselj", "bessely", "besseli", "besselk"})
        functions.push_back(boost::make_shared<BesselFun>(name));
    for (const char* name : {"smhs", "smsign", "c1hs", "c2hs"}) {
        functions.push_back(makeStepFunction(std::string("qx") + name));
        functions.push_back(makeStepFunction(std::string("qxd") + name));
    }
}
