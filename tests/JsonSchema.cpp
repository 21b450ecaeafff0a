#include "JsonSchema.h"

#include <rapidjson/document.h>
#include <rapidjson/schema.h>
#include <rapidjson/stringbuffer.h>

#include <sstream>

#include "TestSupport.h"

namespace testSupport {

std::string schemaFault(std::string const& name, std::string const& text) {
   rapidjson::Document schema, document;
   schema.Parse(sourceText("docs/schemas/" + name + ".schema.json").c_str());
   if (schema.HasParseError()) return "the schema " + name + " is no JSON";
   document.Parse(text.c_str());
   if (document.HasParseError()) return "no JSON: " + text;
   rapidjson::SchemaDocument const compiled(schema);
   rapidjson::SchemaValidator validator(compiled);
   if (document.Accept(validator)) return {};
   rapidjson::StringBuffer place, rule;
   validator.GetInvalidDocumentPointer().StringifyUriFragment(place);
   validator.GetInvalidSchemaPointer().StringifyUriFragment(rule);
   return std::string(validator.GetInvalidSchemaKeyword()) + " of " + rule.GetString() + " at " +
          place.GetString() + " in " + text;
}

std::string schemaFaultOfLines(std::string const& name, std::string const& text) {
   std::istringstream lines(text);
   for (std::string line; std::getline(lines, line);) {
      if (auto fault = schemaFault(name, line); !fault.empty()) return fault;
   }
   return {};
}

}  // namespace testSupport
