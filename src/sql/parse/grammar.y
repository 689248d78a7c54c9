/* The SQL grammar: one statement per text. Every rule builds its part of the statement tree (tree.h).
 *
 * A list under construction is held by its last node, whose `first` points back at the head; list_close turns it
 * into a chain. Nodes come from the statement's pool; a node that cannot be made ends the parse.
 *
 * Precedence, loosest first: OR; AND; NOT; (comparisons: one per predicate, by the rules themselves); + - CONCAT
 * and the prefix date parts; * / %; prefix - and +. A unit after a binary + or - belongs to that whole addition. */

%require "3.8"
%define api.pure full
%define api.prefix {grammar_}
%define api.token.prefix {T_}
%param {tovik::ParseContext &context}
%expect 0

%code requires {
#include "sql/parse/parser.h"
}

%union {
  const char *text;
  int64_t number;
  tovik::Node *node;
}

%code {
#include "data/value/number_text.h"
#include "frame/error.h"

/* The parser's stacks start in its frame and grow, by doubling, in the engine's memory. */
#define YYINITDEPTH tovik::parser_stack_start
#define YYMAXDEPTH tovik::parser_stack_limit
#define YYMALLOC tovik::mem_alloc
#define YYFREE tovik::mem_free

namespace {

using namespace tovik;

int grammar_lex(GRAMMAR_STYPE *value, ParseContext &context);
void grammar_error(ParseContext &context, const char *message);

/* Ends the parse when a node cannot be made; its status is recorded. */
#define MAKE(target, expression) \
  do { if (((target) = (expression)) == nullptr) YYABORT; } while (0)

Node *list_start(Node *item) {
  if (item != nullptr) item->first = item;
  return item;
}
Node *list_append(Node *last, Node *item) {
  if (item == nullptr) return nullptr;
  item->first = last->first;
  return last->first = item;
}
Node *list_join(Node *last, Node *other_last) {
  Node *head = last->first;
  last->first = other_last->first;
  other_last->first = head;
  return other_last;
}
Node *list_close(Node *last) {
  if (last == nullptr) return nullptr;
  Node *head = last->first;
  last->first = nullptr;
  return head;
}

Node *with_qual(Node *made, uint16_t qual) {
  if (made != nullptr) made->qual = qual;
  return made;
}

/* What 64 bits do not hold becomes their limit. */
int64_t integer_of(const char *digits, int64_t sign) {
  int64_t magnitude;
  (void)text_to_integer(digits, &magnitude);
  return sign * magnitude;
}

/* One wrapper node per list item: what it holds stands in `second`. */
Node *item_of(MemoryPool &pool, uint16_t kind, Node *held) { return node_new(pool, kind, nullptr, held); }

Node *function_node(MemoryPool &pool, int64_t number, bool distinct, Node *arguments) {
  Node *made = node_integers(pool, node::function_call, 0);
  if (made == nullptr) return nullptr;
  made->qual = static_cast<uint16_t>(number);
  made->flags = distinct ? 1 : 0;
  made->third = arguments;
  made->value->type = leaf_function;
  return made;
}

Node *query_node(MemoryPool &pool, bool distinct, Node *items, Node *tables, Node *where) {
  Node *from = node_new(pool, node::from, tables, where);
  if (from == nullptr) return nullptr;
  Node *list = node_new(pool, node::select_list, items, from);
  if (list == nullptr) return nullptr;
  list->qual = distinct ? 1 : 0;
  return node_new(pool, node::query, nullptr, list);
}

Node *subquery_node(MemoryPool &pool, Node *query, uint16_t all) {
  return with_qual(node_new(pool, node::subquery, nullptr, nullptr, query), all);
}

/* tested BETWEEN low AND high: the tested expression stands under both comparisons. */
Node *between_node(MemoryPool &pool, Node *tested, bool negated, Node *low, bool low_exclusive, Node *high,
                   bool high_exclusive) {
  Node *lower = node_new(pool, low_exclusive ? node::greater : node::greater_equal, tested, low);
  Node *upper = node_new(pool, high_exclusive ? node::less : node::less_equal, tested, high);
  if (lower == nullptr || upper == nullptr) return nullptr;
  return with_qual(node_new(pool, node::between, lower, upper), negated ? 1 : 0);
}

Node *date_arithmetic(MemoryPool &pool, uint16_t kind, Node *left, Node *right, int64_t unit) {
  return with_qual(node_new(pool, kind, left, right), static_cast<uint16_t>(unit));
}

Node *column_definition(MemoryPool &pool, const char *name, Node *column_type, bool not_null, bool auto_increment) {
  Node *made = node_text(pool, node::column_name, name);
  if (made == nullptr) return nullptr;
  made->second = column_type;
  made->qual = not_null ? 1 : 0;
  made->flags = auto_increment ? 1 : 0;
  return made;
}

Node *option_node(MemoryPool &pool, const char *name, Node *value) {
  Node *option = node_text(pool, node::option_name, name);
  if (option == nullptr) return nullptr;
  Node *pair = node_new(pool, node::assignment, option, value);
  return pair == nullptr ? nullptr : item_of(pool, node::option_item, pair);
}

/* A number that no integer holds stays text, as which no option takes it. */
Node *option_number(MemoryPool &pool, const char *digits) {
  int64_t number;
  if (text_to_integer(digits, &number) != NumberText::whole) return node_text(pool, value_kind::string, digits);
  return node_integers(pool, value_kind::literal, number);
}

Node *assignment_node(MemoryPool &pool, const char *name, Node *value) {
  Node *column = node_text(pool, node::column_name, name);
  if (column == nullptr) return nullptr;
  Node *pair = node_new(pool, node::assignment, column, value);
  return pair == nullptr ? nullptr : item_of(pool, node::assignment_item, pair);
}

Node *index_node(MemoryPool &pool, Node *kind, const char *name, Node *table, Node *columns) {
  Node *index = node_text(pool, node::index_name, name);
  if (index == nullptr) return nullptr;
  index->first = table;
  table->first = columns;
  return node_new(pool, node::create_index, kind, index);
}

Node *file_node(MemoryPool &pool, const char *name, uint16_t mode) {
  return with_qual(node_text(pool, node::file_name, name), mode);
}

Node *select_node(MemoryPool &pool, Node *query, Node *order_items, Node *file) {
  if (order_items == nullptr) return node_new(pool, node::select, query, file);
  Node *order = node_new(pool, node::order_by, order_items, file);
  return order == nullptr ? nullptr : node_new(pool, node::select, query, order);
}

Node *select_item(MemoryPool &pool, Node *expression, Node *alias) {
  return node_new(pool, node::select_item, nullptr, alias, expression);
}

}  // namespace

#define POOL context.pool
}

%token <number> TYPE 260
%token <number> FUNC 261
%token <number> UNIT 262
%token <number> DATEFN 263
%token <text> STRING 264
%token <text> IDENT 265
%token <text> INTNUM 266
%token <text> DECNUM 267
%token <text> EXPNUM 268
%token LEXERR 259 ADD 269 ALL 270 ALTER 271 ANY 272 AS 273 ASC 274 ATTR 275
%token AUTO_INCREMENT 276 BEFORE 277 BEGIN 278 BETWEEN 279 BY 280 CHANGE 281 COMMIT 282 CONCAT 283
%token CREATE 285 DB 286 DELETE 287 DESC 288 DESCENDING 289 DESCRIBE 290 DIRECT_FROM 291 DIRECT_INTO 292
%token DISTINCT 293 DROP 294 DUMP 295 ECHO 296 EMPTY 297 EXCLUSIVE 298 EXISTS 299 FROM 300
%token GROUP 301 HAVING 302 IN 303 INCLUSIVE 304 INDEX 305 INFO 306 INSERT 307 INTO 308
%token IS 309 LIKE 310 MATCH 311 NULL 312 ON 313 ORDER 314 PRINT 315 RENAME 316
%token ROLLBACK 317 SELECT 318 SET 319 SHOW 320 SMATCH 321 SOME 322 TABLE 323 TEST_STMT 324
%token TIMESERIES 325 TO 326 TRANSACTION 327 UNIQUE 328 UPDATE 329 VALUES 330 WHERE 331 WORK 332
%token OR 333 AND 334 NOT 335 NE 336 LE 337 GE 338

%type <node> statement alter_action alter_actions column_items column_item column_definition column_type type_params
%type <node> options option opt_options option_value index_kind index_base column_names table table_refs table_ref
%type <node> query opt_where select_items select_item select_list order_items order_item opt_order opt_file
%type <node> column_ref column_refs source values value_list values_by_expr values_by_group value_group assignments assignment literal opt_literal
%type <node> condition predicate expr function_call info_items test_items index_columns column_adds column_add
%type <text> alias
%type <number> integer opt_all opt_not_null opt_auto opt_distinct direction opt_not bound match_op comp_op quantifier

%left OR
%left AND
%precedence NOT
%left '+' '-' CONCAT DATEFN
%left '*' '/' '%'
%precedence SIGN
%precedence UNIT

%%

input:
    ';'                { context.root = nullptr; }
  | statement          { context.root = $1; }
  | statement ';'      { context.root = $1; }
  ;

statement:
    ALTER table alter_actions                { MAKE($$, node_new(POOL, node::alter, $2, list_close($3))); }
  | BEGIN work                               { MAKE($$, node_new(POOL, node::begin)); }
  | COMMIT work                              { MAKE($$, node_new(POOL, node::commit)); }
  | ROLLBACK work                            { MAKE($$, node_new(POOL, node::rollback)); }
  | CREATE INDEX IDENT opt_on table index_columns
        { MAKE($$, index_node(POOL, nullptr, $3, $5, list_close($6))); }
  | CREATE index_kind INDEX IDENT opt_on table index_columns
        { MAKE($$, index_node(POOL, $2, $4, $6, list_close($7))); }
  | CREATE table '(' column_items ')' opt_options
        { MAKE($$, node_new(POOL, node::create_table, $2, list_close($4), $6)); }
  | DELETE opt_from table opt_where          { MAKE($$, node_new(POOL, node::delete_rows, $3, $4)); }
  | describe DB opt_all                      { MAKE($$, node_new(POOL, node::describe_db)); $$->qual = $3; }
  | describe table opt_all
        { MAKE($$, node_new(POOL, node::describe_table, nullptr, $2)); $$->qual = $3; }
  | DROP INDEX IDENT
        { Node *name; MAKE(name, node_text(POOL, node::index_name, $3));
          MAKE($$, node_new(POOL, node::drop_index, nullptr, name)); }
  | DROP table                               { MAKE($$, node_new(POOL, node::drop_table, nullptr, $2)); }
  | ECHO opt_literal                         { MAKE($$, node_new(POOL, node::echo, nullptr, $2)); }
  | EMPTY table                              { MAKE($$, node_new(POOL, node::empty, nullptr, $2)); }
  | INFO info_items                          { MAKE($$, node_new(POOL, node::info, nullptr, list_close($2))); }
  | INSERT opt_into table source             { MAKE($$, node_new(POOL, node::insert, $3, $4)); }
  | RENAME ATTR IDENT '.' IDENT opt_to IDENT
        { Node *old_name; MAKE(old_name, node_text(POOL, node::qualified_column, $3, $5));
          Node *new_name; MAKE(new_name, node_text(POOL, node::column_name, $7));
          MAKE($$, node_new(POOL, node::rename_attr, old_name, new_name)); }
  | RENAME table opt_to table                { MAKE($$, node_new(POOL, node::rename_table, $2, $4)); }
  | query opt_order opt_file                 { MAKE($$, select_node(POOL, $1, list_close($2), $3)); }
  | SET IDENT opt_set_to literal
        { Node *name; MAKE(name, node_text(POOL, node::parameter_name, $2));
          MAKE($$, node_new(POOL, node::set, name, $4)); }
  | SHOW                                     { MAKE($$, node_new(POOL, node::show)); }
  | SHOW IDENT                               { MAKE($$, node_text(POOL, node::show, $2)); }
  | TEST_STMT test_items                     { MAKE($$, node_new(POOL, node::test_stmt, nullptr, list_close($2))); }
  | UPDATE table source opt_where            { MAKE($$, node_new(POOL, node::update, $2, $3, $4)); }
  ;

work: TRANSACTION | WORK ;
describe: DESCRIBE | DESC ;
opt_on: %empty | ON ;
opt_from: %empty | FROM ;
opt_into: %empty | INTO ;
opt_to: %empty | TO | AS ;
opt_set_to: %empty | TO ;
to_or_equal: TO | '=' ;
opt_all: %empty { $$ = 0; } | ALL { $$ = 1; } ;

table:
    IDENT              { MAKE($$, node_text(POOL, node::table_name, $1)); }
  | TABLE IDENT        { MAKE($$, node_text(POOL, node::table_name, $2)); }
  ;

info_items:
    IDENT              { MAKE($$, list_start(node_text(POOL, node::info_item, $1))); }
  | info_items IDENT   { MAKE($$, list_append($1, node_text(POOL, node::info_item, $2))); }
  ;

/* Columns, options and index kinds */

column_items:
    column_item                    { $$ = list_start($1); }
  | column_items ',' column_item   { $$ = list_append($1, $3); }
  ;
column_item:
    column_definition              { MAKE($$, item_of(POOL, node::column_item, $1)); }
  ;
column_definition:
    IDENT                          { MAKE($$, column_definition(POOL, $1, nullptr, false, false)); }
  | IDENT column_type opt_not_null opt_auto
                                   { MAKE($$, column_definition(POOL, $1, $2, $3 != 0, $4 != 0)); }
  ;
column_type:
    TYPE                           { MAKE($$, node_integers(POOL, node::column_type, $1)); }
  | TYPE type_params               { MAKE($$, node_integers(POOL, node::column_type, $1)); $$->second = $2; }
  ;
type_params:
    '(' integer ')'                { MAKE($$, node_integers(POOL, node::integers, $2)); }
  | '(' integer ',' integer ')'    { MAKE($$, node_integers(POOL, node::integers, $2, $4)); }
  | '(' integer ',' integer ',' integer ')'
                                   { MAKE($$, node_integers(POOL, node::integers, $2, $4, $6)); }
  | '(' integer ',' integer ',' integer ',' integer ')'
                                   { MAKE($$, node_integers(POOL, node::integers, $2, $4, $6)); }
  ;
integer:
    INTNUM                         { $$ = integer_of($1, 1); }
  | '-' INTNUM                     { $$ = integer_of($2, -1); }
  ;
opt_not_null: %empty { $$ = 0; } | NOT NULL { $$ = 1; } ;
opt_auto: %empty { $$ = 0; } | AUTO_INCREMENT { $$ = 1; } ;

opt_options: %empty { $$ = nullptr; } | options { $$ = list_close($1); } ;
options:
    option                         { $$ = list_start($1); }
  | options ',' option             { $$ = list_append($1, $3); }
  ;
option: IDENT to_or_equal option_value   { MAKE($$, option_node(POOL, $1, $3)); } ;
option_value:
    INTNUM                         { MAKE($$, option_number(POOL, $1)); }
  | '-' INTNUM                     { MAKE($$, node_integers(POOL, value_kind::literal, integer_of($2, -1))); }
  | STRING                         { MAKE($$, node_text(POOL, value_kind::string, $1)); }
  ;

index_kind:
    index_base                     { $$ = $1; }
  | index_base TIMESERIES          { MAKE($$, node_new(POOL, node::index_timeseries, $1)); }
  ;
index_base:
    UNIQUE                         { MAKE($$, node_new(POOL, node::index_unique)); }
  | DISTINCT                       { MAKE($$, node_new(POOL, node::index_unique)); }
  | '(' integer ',' integer ')'    { MAKE($$, node_integers(POOL, node::integers, $2, $4)); }
  ;
index_columns:
    '(' column_names ')'           { $$ = $2; }
  | SET column_names               { $$ = $2; }
  ;
column_names:
    IDENT                          { MAKE($$, list_start(node_text(POOL, node::column_name, $1))); }
  | column_names ',' IDENT         { MAKE($$, list_append($1, node_text(POOL, node::column_name, $3))); }
  ;

/* ALTER */

alter_actions:
    alter_action                   { $$ = list_start($1); }
  | alter_actions alter_action     { $$ = list_append($1, $2); }
  ;
alter_action:
    ADD column_adds                { MAKE($$, node_new(POOL, node::alter_add, nullptr, list_close($2))); }
  | CHANGE column_items            { MAKE($$, node_new(POOL, node::alter_change, nullptr, list_close($2))); }
  | DELETE column_refs             { MAKE($$, node_new(POOL, node::alter_delete, nullptr, list_close($2))); }
  | SET options                    { MAKE($$, node_new(POOL, node::alter_set, nullptr, list_close($2))); }
  ;
column_adds:
    column_add                     { $$ = list_start($1); }
  | column_adds ',' column_add     { $$ = list_append($1, $3); }
  ;
column_add:
    column_item                    { $$ = $1; }
  | column_item BEFORE IDENT
        { Node *name; MAKE(name, node_text(POOL, node::column_name, $3));
          MAKE($1->third, node_new(POOL, node::before, nullptr, name)); $$ = $1; }
  ;
column_refs:
    column_ref                     { $$ = list_start($1); }
  | column_refs ',' column_ref     { $$ = list_append($1, $3); }
  ;
column_ref:
    IDENT                          { MAKE($$, node_text(POOL, node::column_name, $1)); }
  | IDENT '.' IDENT                { MAKE($$, node_text(POOL, node::qualified_column, $1, $3)); }
  ;

/* Values of INSERT and UPDATE */

source:
    '(' column_names ')' values    { $$ = list_close($2); $$->second = $4; }
  | '(' column_names ')' value_list
        { $$ = list_close($2); MAKE($$->second, node_new(POOL, node::values, nullptr, list_close($4))); }
  | values                         { $$ = $1; }
  | SET assignments                { MAKE($$, node_new(POOL, node::assignment_list, nullptr, list_close($2))); }
  ;
values:
    VALUES value_list              { MAKE($$, node_new(POOL, node::values, nullptr, list_close($2))); }
  | SET TO value_list              { MAKE($$, node_new(POOL, node::values, nullptr, list_close($3))); }
  | FROM STRING                    { MAKE($$, file_node(POOL, $2, file_load)); }
  ;
assignments:
    assignment                     { $$ = list_start($1); }
  | assignments ',' assignment     { $$ = list_append($1, $3); }
  ;
assignment: IDENT to_or_equal expr { MAKE($$, assignment_node(POOL, $1, $3)); } ;
/* Parentheses only group: the list is flat. Two groups never stand side by side. */
value_list: values_by_expr { $$ = $1; } | values_by_group { $$ = $1; } ;
values_by_expr:
    expr                           { MAKE($$, list_start(item_of(POOL, node::value_item, $1))); }
  | values_by_expr ',' expr        { MAKE($$, list_append($1, item_of(POOL, node::value_item, $3))); }
  | values_by_group ',' expr       { MAKE($$, list_append($1, item_of(POOL, node::value_item, $3))); }
  ;
values_by_group:
    value_group                    { $$ = $1; }
  | values_by_expr ',' value_group { $$ = list_join($1, $3); }
  ;
value_group:
    '(' values_by_expr ',' expr ')'
        { MAKE($$, list_append($2, item_of(POOL, node::value_item, $4))); }
  | '(' values_by_group ',' expr ')'
        { MAKE($$, list_append($2, item_of(POOL, node::value_item, $4))); }
  ;

literal:
    INTNUM                         { MAKE($$, node_text(POOL, value_kind::integer_text, $1)); }
  | DECNUM                         { MAKE($$, node_text(POOL, value_kind::decimal_text, $1)); }
  | EXPNUM                         { MAKE($$, node_text(POOL, value_kind::exponent_text, $1)); }
  | STRING                         { MAKE($$, node_text(POOL, value_kind::string, $1)); }
  ;
opt_literal: %empty { $$ = nullptr; } | literal { $$ = $1; } ;

/* Queries */

query:
    SELECT opt_distinct select_list FROM table_refs opt_where
        { MAKE($$, query_node(POOL, $2 != 0, list_close($3), list_close($5), $6)); }
  ;
opt_distinct: %empty { $$ = 0; } | ALL { $$ = 0; } | DISTINCT { $$ = 1; } ;
select_list: %empty { $$ = nullptr; } | '*' { $$ = nullptr; } | select_items { $$ = $1; } ;
select_items:
    select_item                    { $$ = list_start($1); }
  | select_items ',' select_item   { $$ = list_append($1, $3); }
  ;
test_items: select_items           { $$ = $1; } ;
select_item:
    expr                           { MAKE($$, select_item(POOL, $1, nullptr)); }
  | expr opt_as alias
        { Node *alias; MAKE(alias, node_text(POOL, node::alias, $3)); MAKE($$, select_item(POOL, $1, alias)); }
  | condition opt_as alias
        { Node *alias; MAKE(alias, node_text(POOL, node::alias, $3)); MAKE($$, select_item(POOL, $1, alias)); }
  ;
opt_as: %empty | PRINT | AS ;
alias: IDENT { $$ = $1; } | STRING { $$ = $1; } ;
table_refs:
    table_ref                      { $$ = list_start($1); }
  | table_refs ',' table_ref       { $$ = list_append($1, $3); }
  ;
table_ref:
    table                          { $$ = $1; }
  | table IDENT                    { $$ = $1; $$->value->texts[1] = $2; }
  ;
opt_where:
    %empty                         { $$ = nullptr; }
  | WHERE condition                { MAKE($$, node_new(POOL, node::where, $2)); }
  ;
opt_order: %empty { $$ = nullptr; } | ORDER BY order_items { $$ = $3; } ;
order_items:
    order_item                     { $$ = list_start($1); }
  | order_items ',' order_item     { $$ = list_append($1, $3); }
  ;
order_item:
    column_ref direction           { MAKE($$, item_of(POOL, node::order_item, $1)); $$->qual = $2; }
  ;
direction: %empty { $$ = 0; } | ASC { $$ = 0; } | DESC { $$ = 1; } | DESCENDING { $$ = 1; } ;
opt_file:
    %empty                         { $$ = nullptr; }
  | INTO STRING                    { MAKE($$, file_node(POOL, $2, file_into)); }
  | DUMP INTO STRING               { MAKE($$, file_node(POOL, $3, file_dump_into)); }
  ;

/* Conditions */

condition:
    predicate                      { $$ = $1; }
  | '(' condition ')'              { $$ = $2; }
  | NOT condition                  { MAKE($$, node_new(POOL, node::logical_not, nullptr, $2)); }
  | condition AND condition        { MAKE($$, node_new(POOL, node::logical_and, $1, $3)); }
  | condition OR condition         { MAKE($$, node_new(POOL, node::logical_or, $1, $3)); }
  ;
predicate:
    expr IS opt_not NULL
        { Node *null; MAKE(null, node_new(POOL, value_kind::null));
          MAKE($$, with_qual(node_new(POOL, node::is_null, $1, null), $3)); }
  | expr opt_not BETWEEN expr bound range_to expr bound
        { MAKE($$, between_node(POOL, $1, $2 != 0, $4, $5 != 0, $7, $8 != 0)); }
  | expr opt_not match_op expr     { MAKE($$, with_qual(node_new(POOL, $3, $1, $4), $2)); }
  | expr opt_not IN '(' value_list ')'
        { MAKE($$, with_qual(node_new(POOL, node::in, $1, nullptr, list_close($5)), $2)); }
  | expr opt_not IN '(' query ')'
        { Node *subquery; MAKE(subquery, subquery_node(POOL, $5, 0));
          MAKE($$, with_qual(node_new(POOL, node::in, $1, subquery), $2)); }
  | expr comp_op expr              { MAKE($$, node_new(POOL, $2, $1, $3)); }
  | expr comp_op '(' query ')'
        { Node *subquery; MAKE(subquery, subquery_node(POOL, $4, 0)); MAKE($$, node_new(POOL, $2, $1, subquery)); }
  | expr comp_op quantifier '(' query ')'
        { Node *subquery; MAKE(subquery, subquery_node(POOL, $5, $3)); MAKE($$, node_new(POOL, $2, $1, subquery)); }
  | EXISTS '(' query ')'           { $$ = $3; }
  ;
opt_not: %empty { $$ = 0; } | NOT { $$ = 1; } ;
range_to: TO | AND ;
bound: %empty { $$ = 0; } | INCLUSIVE { $$ = 0; } | EXCLUSIVE { $$ = 1; } ;
match_op:
    LIKE                           { $$ = node::like; }
  | MATCH                          { $$ = node::match; }
  | SMATCH                         { $$ = node::smatch; }
  | '!' MATCH                      { $$ = node::not_match; }
  | '!' SMATCH                     { $$ = node::not_smatch; }
  ;
comp_op:
    '='                            { $$ = node::equal; }
  | NE                             { $$ = node::not_equal; }
  | '<'                            { $$ = node::less; }
  | '>'                            { $$ = node::greater; }
  | LE                             { $$ = node::less_equal; }
  | GE                             { $$ = node::greater_equal; }
  ;
quantifier: ANY { $$ = 0; } | SOME { $$ = 0; } | ALL { $$ = 1; } ;

/* Expressions */

expr:
    '(' expr ')'                   { $$ = $2; }
  | expr '+' expr                  { MAKE($$, node_new(POOL, node::add, $1, $3)); }
  | expr '+' expr UNIT             { MAKE($$, date_arithmetic(POOL, node::date_add, $1, $3, $4)); }
  | expr '-' expr                  { MAKE($$, node_new(POOL, node::subtract, $1, $3)); }
  | expr '-' expr UNIT             { MAKE($$, date_arithmetic(POOL, node::date_subtract, $1, $3, $4)); }
  | expr '*' expr                  { MAKE($$, node_new(POOL, node::multiply, $1, $3)); }
  | expr '/' expr                  { MAKE($$, node_new(POOL, node::divide, $1, $3)); }
  | expr '%' expr                  { MAKE($$, node_new(POOL, node::remainder, $1, $3)); }
  | expr CONCAT expr               { MAKE($$, node_new(POOL, node::concat, $1, $3)); }
  | '-' expr %prec SIGN            { MAKE($$, node_new(POOL, node::negation, nullptr, $2)); }
  | '+' expr %prec SIGN            { $$ = $2; }
  | DATEFN expr                    { MAKE($$, node_new(POOL, $1, nullptr, $2)); }
  | column_ref                     { $$ = $1; }
  | literal                        { $$ = $1; }
  | function_call                  { $$ = $1; }
  | NULL                           { MAKE($$, node_new(POOL, value_kind::null)); }
  | DIRECT_FROM STRING             { MAKE($$, file_node(POOL, $2, file_direct_from)); }
  ;
function_call:
    FUNC                           { MAKE($$, function_node(POOL, $1, false, nullptr)); }
  | FUNC '(' '*' ')'               { MAKE($$, function_node(POOL, $1, false, nullptr)); }
  | FUNC '(' opt_distinct value_list ')'
        { MAKE($$, function_node(POOL, $1, $3 != 0, list_close($4))); }
  ;

%%

namespace {

int grammar_lex(GRAMMAR_STYPE *value, ParseContext &context) {
  TokenValue token;
  const int number = lexer_next(context.lexer, &token);
  value->number = token.number;
  return number;
}

/* A syntax error, or stacks that would pass their limit. */
void grammar_error(ParseContext &, const char *) { err_set(status::syntax_error); }

}  // namespace
