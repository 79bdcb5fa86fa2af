// The files that velun writes into a bundle, byte for byte.
#pragma once

#include <string>

namespace velun::test {

inline const std::string detailed_heads =
    R"("PERSON":["O","B-PERSON-COMMON","I-PERSON-COMMON","B-PERSON-UNCOMMON",)"
    R"("I-PERSON-UNCOMMON","B-PERSON-RARE","I-PERSON-RARE"],)"
    R"("CITY":["O","B-CITY-MAJOR","I-CITY-MAJOR","B-CITY-MEDIUM","I-CITY-MEDIUM",)"
    R"("B-CITY-SMALL","I-CITY-SMALL"],)"
    R"("STREET":["O","B-STREET-GENERIC","I-STREET-GENERIC","B-STREET-SPECIFIC",)"
    R"("I-STREET-SPECIFIC","B-STREET-LOCAL","I-STREET-LOCAL"],)"
    R"("ORG":["O","B-ORG-INTERNATIONAL","I-ORG-INTERNATIONAL","B-ORG-NATIONAL",)"
    R"("I-ORG-NATIONAL","B-ORG-REGIONAL","I-ORG-REGIONAL"])";

/// labels.json of a model whose window is 1024 or more.
inline const std::string nineteen_heads =
    R"({"head_order":["PERSON","CITY","STREET","ORG","EMAIL","USERNAME","URL","PHONE","ACCOUNT",)"
    R"("WALLET","CARD","NATIONAL_ID","PLATE","DOB","NETADDR","POSTAL_CODE","CUSTOMER_ID",)"
    R"("SECRET","CODENAME"],"default_off":[],"heads":{)" +
    detailed_heads +
    R"(,"EMAIL":["O","B-EMAIL-STD","I-EMAIL-STD"],)"
    R"("USERNAME":["O","B-USERNAME-STD","I-USERNAME-STD"],)"
    R"("URL":["O","B-URL-STD","I-URL-STD"],)"
    R"("PHONE":["O","B-PHONE-STD","I-PHONE-STD"],)"
    R"("ACCOUNT":["O","B-ACCOUNT-STD","I-ACCOUNT-STD"],)"
    R"("WALLET":["O","B-WALLET-STD","I-WALLET-STD"],)"
    R"("CARD":["O","B-CARD-STD","I-CARD-STD"],)"
    R"("NATIONAL_ID":["O","B-NATIONAL_ID-STD","I-NATIONAL_ID-STD"],)"
    R"("PLATE":["O","B-PLATE-STD","I-PLATE-STD"],)"
    R"("DOB":["O","B-DOB-STD","I-DOB-STD"],)"
    R"("NETADDR":["O","B-NETADDR-STD","I-NETADDR-STD"],)"
    R"("POSTAL_CODE":["O","B-POSTAL_CODE-STD","I-POSTAL_CODE-STD"],)"
    R"("CUSTOMER_ID":["O","B-CUSTOMER_ID-STD","I-CUSTOMER_ID-STD"],)"
    R"("SECRET":["O","B-SECRET-STD","I-SECRET-STD"],)"
    R"("CODENAME":["O","B-CODENAME-STD","I-CODENAME-STD"]}})"
    "\n";

/// labels.json of a model whose window is 1023 or less.
inline const std::string four_heads =
    R"({"head_order":["PERSON","CITY","STREET","ORG"],"default_off":["ORG"],"heads":{)" +
    detailed_heads + "}}\n";

/// manifest.json of the catalog's model.
inline const std::string catalog_manifest =
    "{\"model\":\"Velun 1.3\",\"window\":1024,\"segment\":\"union\"}\n";

}  // namespace velun::test
