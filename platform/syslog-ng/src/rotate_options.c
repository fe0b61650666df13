/* An option module for stock syslog-ng. The board's syslog-ng rotates its files by itself and has two global
 * options for that, rotate_if_larger(SIZE) and rotate_program("COMMAND"), which the generated configuration
 * uses; stock syslog-ng does not know them and would refuse the whole text. With this module it reads both,
 * and does nothing with them. */
#include <syslog-ng-config.h>

#include <cfg-lexer.h>
#include <cfg-parser.h>
#include <plugin-types.h>
#include <plugin.h>

/* The options statement does not look at whether the parser of an option from a module has failed. What it
 * cannot overlook is a token that fits nowhere. */
static void make_statement_fail(CfgLexer* lexer) {
    CFG_STYPE token = {.type = LL_TOKEN, {.token = LL_ERROR}};
    CfgTokenBlock* block = cfg_token_block_new();
    cfg_token_block_add_token(block, &token);
    cfg_lexer_inject_token_block(lexer, block);
}

static gint parse_option(CfgLexer* lexer, int value_type, char const* usage) {
    /* The lexer repeats what syslog-ng chose this parser by: the statement's kind and the option's name. */
    int const expected[] = {LL_CONTEXT_OPTIONS, LL_IDENTIFIER, '(', value_type, ')'};
    for (gsize i = 0; i < G_N_ELEMENTS(expected); ++i) {
        CFG_STYPE token;
        CFG_LTYPE location;
        int const type = cfg_lexer_lex(lexer, &token, &location);
        gboolean const fits = type == expected[i] && (type != LL_NUMBER || token.num > 0);
        cfg_lexer_free_token(&token);
        if (!fits) {
            report_syntax_error(lexer, &location, cfg_lexer_get_context_description(lexer), usage, FALSE);
            make_statement_fail(lexer);
            return 1;
        }
    }
    return 0;
}

static gint parse_rotate_if_larger(CfgLexer* lexer, gpointer* instance, gpointer arg) {
    *instance = NULL;
    (void)arg;
    return parse_option(lexer, LL_NUMBER, "expected rotate_if_larger(SIZE), SIZE a number of bytes above 0");
}

static gint parse_rotate_program(CfgLexer* lexer, gpointer* instance, gpointer arg) {
    *instance = NULL;
    (void)arg;
    return parse_option(lexer, LL_STRING, "expected rotate_program(\"COMMAND\")");
}

static CfgLexerKeyword no_keywords[] = {{.kw_name = NULL}};

static CfgParser rotate_if_larger = {.context = LL_CONTEXT_OPTIONS,
                                     .name = "rotate_if_larger option",
                                     .keywords = no_keywords,
                                     .parse = parse_rotate_if_larger};
static CfgParser rotate_program = {.context = LL_CONTEXT_OPTIONS,
                                   .name = "rotate_program option",
                                   .keywords = no_keywords,
                                   .parse = parse_rotate_program};

static Plugin plugins[] = {
    {.type = LL_CONTEXT_OPTIONS, .name = "rotate_if_larger", .parser = &rotate_if_larger},
    {.type = LL_CONTEXT_OPTIONS, .name = "rotate_program", .parser = &rotate_program},
};

/* syslog-ng derives the name of this function from the file name librotate-options.so. */
gboolean rotate_options_module_init(PluginContext* context, CfgArgs* args);
gboolean rotate_options_module_init(PluginContext* context, CfgArgs* args) {
    (void)args;
    plugin_register(context, plugins, G_N_ELEMENTS(plugins));
    return TRUE;
}

/* syslog-ng reads this from every file of its module folder to learn which file has which option, so the text
 * needs no line that names the module. */
extern ModuleInfo const module_info;
ModuleInfo const module_info = {
    .canonical_name = "rotate-options",
    .version = SYSLOG_NG_VERSION,
    .description =
        "Reads the global options rotate_if_larger() and rotate_program() and does nothing with them.",
    .core_revision = SYSLOG_NG_SOURCE_REVISION,
    .plugins = plugins,
    .plugins_len = G_N_ELEMENTS(plugins),
};
