/* The SQL grammar: one statement per text. Every rule builds its part of the statement tree (tree.h), in the shape
 * that the part has (shapes.h). Nodes come from the statement's pool; a node that cannot be made ends the parse.
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
#include "sql/parse/shapes.h"
}

%union {
  const char *text;
  int64_t number;
  tovik::Node *node;
  tovik::Quantifier quantifier;
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
#define MAKE(target, ...) \
  do { if (((target) = (__VA_ARGS__)) == nullptr) YYABORT; } while (0)

/* What 64 bits do not hold becomes their limit. */
int64_t integer_of(const char *digits, int64_t sign) {
  int64_t magnitude;
  (void)text_to_integer(digits, &magnitude);
  return sign * magnitude;
}

/* tested BETWEEN low AND high: the tested expression stands under both comparisons. */
Node *between_node(MemoryPool &pool, Node *tested, bool negated, Node *low, bool low_exclusive, Node *high,
                   bool high_exclusive) {
  Node *lower = OperatorTree{tested, low}.make(pool, low_exclusive ? node::greater : node::greater_equal);
  Node *upper = OperatorTree{tested, high}.make(pool, high_exclusive ? node::less : node::less_equal);
  if (lower == nullptr || upper == nullptr) return nullptr;
  return BetweenTree{lower, upper, negated}.make(pool);
}

/* A number that no integer holds stays text, as which no option takes it. */
Node *option_number(MemoryPool &pool, const char *digits) {
  int64_t number;
  if (text_to_integer(digits, &number) != NumberText::whole) return node_text(pool, value_kind::string, digits);
  return node_integers(pool, value_kind::literal, number);
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
%type <node> query opt_where select_items select_item select_list opt_group order_items order_item opt_order opt_file
%type <node> column_ref column_refs source values value_list values_by_expr values_by_group value_group assignments assignment literal opt_literal
%type <node> condition predicate expr function_call info_items test_items index_columns column_adds column_add
%type <text> alias
%type <number> integer opt_all opt_not_null opt_auto opt_distinct direction opt_not bound match_op comp_op
%type <quantifier> quantifier

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
    ALTER table alter_actions                { MAKE($$, AlterTree{$2, list_close($3)}.make(POOL)); }
  | BEGIN work                               { MAKE($$, node_new(POOL, node::begin)); }
  | COMMIT work                              { MAKE($$, node_new(POOL, node::commit)); }
  | ROLLBACK work                            { MAKE($$, node_new(POOL, node::rollback)); }
  | CREATE INDEX IDENT opt_on table index_columns
        { MAKE($$, CreateIndexTree{nullptr, $3, $5, list_close($6)}.make(POOL)); }
  | CREATE index_kind INDEX IDENT opt_on table index_columns
        { MAKE($$, CreateIndexTree{$2, $4, $6, list_close($7)}.make(POOL)); }
  | CREATE table '(' column_items ')' opt_options
        { MAKE($$, CreateTableTree{$2, list_close($4), $6}.make(POOL)); }
  | DELETE opt_from table opt_where          { MAKE($$, DeleteTree{$3, $4}.make(POOL)); }
  | describe DB opt_all                      { MAKE($$, DescribeTree{nullptr, $3 != 0}.make(POOL, node::describe_db)); }
  | describe table opt_all                   { MAKE($$, DescribeTree{$2, $3 != 0}.make(POOL, node::describe_table)); }
  | DROP INDEX IDENT
        { Node *name; MAKE(name, node_text(POOL, node::index_name, $3));
          MAKE($$, TargetTree{name}.make(POOL, node::drop_index)); }
  | DROP table                               { MAKE($$, TargetTree{$2}.make(POOL, node::drop_table)); }
  | ECHO opt_literal                         { MAKE($$, TargetTree{$2}.make(POOL, node::echo)); }
  | EMPTY table                              { MAKE($$, TargetTree{$2}.make(POOL, node::empty)); }
  | INFO info_items                          { MAKE($$, ListTree{list_close($2)}.make(POOL, node::info)); }
  | INSERT opt_into table source             { MAKE($$, InsertTree{$3, $4}.make(POOL)); }
  | RENAME ATTR IDENT '.' IDENT opt_to IDENT
        { Node *old_name; MAKE(old_name, ColumnNameTree{$3, $5}.make(POOL));
          Node *new_name; MAKE(new_name, ColumnNameTree{nullptr, $7}.make(POOL));
          MAKE($$, RenameTree{old_name, new_name}.make(POOL, node::rename_attr)); }
  | RENAME table opt_to table                { MAKE($$, RenameTree{$2, $4}.make(POOL, node::rename_table)); }
  | query opt_order opt_file                 { MAKE($$, SelectTree{$1, list_close($2), $3}.make(POOL)); }
  | SET IDENT opt_set_to literal
        { Node *name; MAKE(name, node_text(POOL, node::parameter_name, $2));
          MAKE($$, SetTree{name, $4}.make(POOL)); }
  | SHOW                                     { MAKE($$, node_new(POOL, node::show)); }
  | SHOW IDENT                               { MAKE($$, node_text(POOL, node::show, $2)); }
  | TEST_STMT test_items                     { MAKE($$, ListTree{list_close($2)}.make(POOL, node::test_stmt)); }
  | UPDATE table source opt_where            { MAKE($$, UpdateTree{$2, $3, $4}.make(POOL)); }
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
    column_definition              { MAKE($$, ColumnItemTree{$1, nullptr}.make(POOL)); }
  ;
column_definition:
    IDENT                          { MAKE($$, ColumnDefinitionTree{$1}.make(POOL)); }
  | IDENT column_type opt_not_null opt_auto
                                   { MAKE($$, ColumnDefinitionTree{$1, $2, $3 != 0, $4 != 0}.make(POOL)); }
  ;
column_type:
    TYPE                           { MAKE($$, ColumnTypeTree{$1, nullptr}.make(POOL)); }
  | TYPE type_params               { MAKE($$, ColumnTypeTree{$1, $2}.make(POOL)); }
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
option: IDENT to_or_equal option_value   { MAKE($$, AssignmentTree{$1, $3}.make(POOL, node::option_item)); } ;
option_value:
    INTNUM                         { MAKE($$, option_number(POOL, $1)); }
  | '-' INTNUM                     { MAKE($$, node_integers(POOL, value_kind::literal, integer_of($2, -1))); }
  | STRING                         { MAKE($$, node_text(POOL, value_kind::string, $1)); }
  ;

index_kind:
    index_base                     { $$ = $1; }
  | index_base TIMESERIES          { MAKE($$, IndexKindTree::make_timeseries(POOL, $1)); }
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
    IDENT                          { MAKE($$, list_start(ColumnNameTree{nullptr, $1}.make(POOL))); }
  | column_names ',' IDENT         { MAKE($$, list_append($1, ColumnNameTree{nullptr, $3}.make(POOL))); }
  ;

/* ALTER */

alter_actions:
    alter_action                   { $$ = list_start($1); }
  | alter_actions alter_action     { $$ = list_append($1, $2); }
  ;
alter_action:
    ADD column_adds                { MAKE($$, ListTree{list_close($2)}.make(POOL, node::alter_add)); }
  | CHANGE column_items            { MAKE($$, ListTree{list_close($2)}.make(POOL, node::alter_change)); }
  | DELETE column_refs             { MAKE($$, ListTree{list_close($2)}.make(POOL, node::alter_delete)); }
  | SET options                    { MAKE($$, ListTree{list_close($2)}.make(POOL, node::alter_set)); }
  ;
column_adds:
    column_add                     { $$ = list_start($1); }
  | column_adds ',' column_add     { $$ = list_append($1, $3); }
  ;
column_add:
    column_item                    { $$ = $1; }
  | column_definition BEFORE IDENT { MAKE($$, ColumnItemTree{$1, $3}.make(POOL)); }
  ;
column_refs:
    column_ref                     { $$ = list_start($1); }
  | column_refs ',' column_ref     { $$ = list_append($1, $3); }
  ;
column_ref:
    IDENT                          { MAKE($$, ColumnNameTree{nullptr, $1}.make(POOL)); }
  | IDENT '.' IDENT                { MAKE($$, ColumnNameTree{$1, $3}.make(POOL)); }
  ;

/* Values of INSERT and UPDATE */

source:
    '(' column_names ')' values    { $$ = SourceTree{list_close($2), $4}.make(); }
  | '(' column_names ')' value_list
        { Node *values; MAKE(values, ListTree{list_close($4)}.make(POOL, node::values));
          $$ = SourceTree{list_close($2), values}.make(); }
  | values                         { $$ = $1; }
  | SET assignments                { MAKE($$, ListTree{list_close($2)}.make(POOL, node::assignment_list)); }
  ;
values:
    VALUES value_list              { MAKE($$, ListTree{list_close($2)}.make(POOL, node::values)); }
  | SET TO value_list              { MAKE($$, ListTree{list_close($3)}.make(POOL, node::values)); }
  | FROM STRING                    { MAKE($$, FileTree{$2, file_load}.make(POOL)); }
  ;
assignments:
    assignment                     { $$ = list_start($1); }
  | assignments ',' assignment     { $$ = list_append($1, $3); }
  ;
assignment: IDENT to_or_equal expr { MAKE($$, AssignmentTree{$1, $3}.make(POOL, node::assignment_item)); } ;
/* Parentheses only group: the list is flat. Two groups never stand side by side. */
value_list: values_by_expr { $$ = $1; } | values_by_group { $$ = $1; } ;
values_by_expr:
    expr                           { MAKE($$, list_start(ValueItemTree{$1}.make(POOL))); }
  | values_by_expr ',' expr        { MAKE($$, list_append($1, ValueItemTree{$3}.make(POOL))); }
  | values_by_group ',' expr       { MAKE($$, list_append($1, ValueItemTree{$3}.make(POOL))); }
  ;
values_by_group:
    value_group                    { $$ = $1; }
  | values_by_expr ',' value_group { $$ = list_join($1, $3); }
  ;
value_group:
    '(' values_by_expr ',' expr ')'
        { MAKE($$, list_append($2, ValueItemTree{$4}.make(POOL))); }
  | '(' values_by_group ',' expr ')'
        { MAKE($$, list_append($2, ValueItemTree{$4}.make(POOL))); }
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
    SELECT opt_distinct select_list FROM table_refs opt_where opt_group
        { MAKE($$, QueryTree{list_close($3), $2 != 0, list_close($5), $6, $7}.make(POOL)); }
  ;
opt_distinct: %empty { $$ = 0; } | ALL { $$ = 0; } | DISTINCT { $$ = 1; } ;
select_list: %empty { $$ = nullptr; } | '*' { $$ = nullptr; } | select_items { $$ = $1; } ;
select_items:
    select_item                    { $$ = list_start($1); }
  | select_items ',' select_item   { $$ = list_append($1, $3); }
  ;
test_items: select_items           { $$ = $1; } ;
select_item:
    expr                           { MAKE($$, SelectItemTree{$1, nullptr}.make(POOL)); }
  | expr opt_as alias
        { Node *alias; MAKE(alias, node_text(POOL, node::alias, $3)); MAKE($$, SelectItemTree{$1, alias}.make(POOL)); }
  | condition opt_as alias
        { Node *alias; MAKE(alias, node_text(POOL, node::alias, $3)); MAKE($$, SelectItemTree{$1, alias}.make(POOL)); }
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
  | WHERE condition                { MAKE($$, WhereTree{$2}.make(POOL)); }
  ;
opt_group:
    %empty                         { $$ = nullptr; }
  | GROUP BY column_refs           { MAKE($$, GroupByTree{list_close($3), nullptr}.make(POOL)); }
  | GROUP BY column_refs HAVING condition
                                   { MAKE($$, GroupByTree{list_close($3), $5}.make(POOL)); }
  | HAVING condition               { MAKE($$, GroupByTree{nullptr, $2}.make(POOL)); }
  ;
opt_order: %empty { $$ = nullptr; } | ORDER BY order_items { $$ = $3; } ;
order_items:
    order_item                     { $$ = list_start($1); }
  | order_items ',' order_item     { $$ = list_append($1, $3); }
  ;
order_item:
    column_ref direction           { MAKE($$, OrderItemTree{$1, $2 != 0}.make(POOL)); }
  ;
direction: %empty { $$ = 0; } | ASC { $$ = 0; } | DESC { $$ = 1; } | DESCENDING { $$ = 1; } ;
opt_file:
    %empty                         { $$ = nullptr; }
  | INTO STRING                    { MAKE($$, FileTree{$2, file_into}.make(POOL)); }
  | DUMP INTO STRING               { MAKE($$, FileTree{$3, file_dump_into}.make(POOL)); }
  ;

/* Conditions */

condition:
    predicate                      { $$ = $1; }
  | '(' condition ')'              { $$ = $2; }
  | NOT condition                  { MAKE($$, OperatorTree{nullptr, $2}.make(POOL, node::logical_not)); }
  | condition AND condition        { MAKE($$, OperatorTree{$1, $3}.make(POOL, node::logical_and)); }
  | condition OR condition         { MAKE($$, OperatorTree{$1, $3}.make(POOL, node::logical_or)); }
  ;
predicate:
    expr IS opt_not NULL           { MAKE($$, IsNullTree{$1, $3 != 0}.make(POOL)); }
  | expr opt_not BETWEEN expr bound range_to expr bound
        { MAKE($$, between_node(POOL, $1, $2 != 0, $4, $5 != 0, $7, $8 != 0)); }
  | expr opt_not match_op expr     { MAKE($$, MatchTree{$1, $4, $2 != 0}.make(POOL, $3)); }
  | expr opt_not IN '(' value_list ')'
        { MAKE($$, InTree{$1, list_close($5), nullptr, $2 != 0}.make(POOL)); }
  | expr opt_not IN '(' query ')'
        { Node *subquery; MAKE(subquery, SubqueryTree{$5, Quantifier::none}.make(POOL));
          MAKE($$, InTree{$1, nullptr, subquery, $2 != 0}.make(POOL)); }
  | expr comp_op expr              { MAKE($$, OperatorTree{$1, $3}.make(POOL, $2)); }
  | expr comp_op '(' query ')'
        { Node *subquery; MAKE(subquery, SubqueryTree{$4, Quantifier::none}.make(POOL)); MAKE($$, OperatorTree{$1, subquery}.make(POOL, $2)); }
  | expr comp_op quantifier '(' query ')'
        { Node *subquery; MAKE(subquery, SubqueryTree{$5, $3}.make(POOL)); MAKE($$, OperatorTree{$1, subquery}.make(POOL, $2)); }
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
quantifier: ANY { $$ = Quantifier::any; } | SOME { $$ = Quantifier::any; } | ALL { $$ = Quantifier::all; } ;

/* Expressions */

expr:
    '(' expr ')'                   { $$ = $2; }
  | expr '+' expr                  { MAKE($$, OperatorTree{$1, $3}.make(POOL, node::add)); }
  | expr '+' expr UNIT             { MAKE($$, DateTree{$1, $3, static_cast<uint16_t>($4)}.make(POOL, node::date_add)); }
  | expr '-' expr                  { MAKE($$, OperatorTree{$1, $3}.make(POOL, node::subtract)); }
  | expr '-' expr UNIT             { MAKE($$, DateTree{$1, $3, static_cast<uint16_t>($4)}.make(POOL, node::date_subtract)); }
  | expr '*' expr                  { MAKE($$, OperatorTree{$1, $3}.make(POOL, node::multiply)); }
  | expr '/' expr                  { MAKE($$, OperatorTree{$1, $3}.make(POOL, node::divide)); }
  | expr '%' expr                  { MAKE($$, OperatorTree{$1, $3}.make(POOL, node::remainder)); }
  | expr CONCAT expr               { MAKE($$, OperatorTree{$1, $3}.make(POOL, node::concat)); }
  | '-' expr %prec SIGN            { MAKE($$, OperatorTree{nullptr, $2}.make(POOL, node::negation)); }
  | '+' expr %prec SIGN            { $$ = $2; }
  | DATEFN expr                    { MAKE($$, OperatorTree{nullptr, $2}.make(POOL, $1)); }
  | column_ref                     { $$ = $1; }
  | literal                        { $$ = $1; }
  | function_call                  { $$ = $1; }
  | NULL                           { MAKE($$, node_new(POOL, value_kind::null)); }
  | DIRECT_FROM STRING             { MAKE($$, FileTree{$2, file_direct_from}.make(POOL)); }
  ;
function_call:
    FUNC                           { MAKE($$, CallTree{static_cast<uint16_t>($1)}.make(POOL)); }
  | FUNC '(' '*' ')'               { MAKE($$, CallTree{static_cast<uint16_t>($1)}.make(POOL)); }
  | FUNC '(' opt_distinct value_list ')'
        { MAKE($$, CallTree{static_cast<uint16_t>($1), $3 != 0, list_close($4)}.make(POOL)); }
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
